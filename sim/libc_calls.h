// The operating system's calls that depend on time, on other tasks or on chance, for the node whose
// task is calling. The module's copies are led here instead of to the C library.
#pragma once

#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <new>

namespace erps::sim::calls {

int gettimeofday(timeval* time, void* zone);
time_t time(time_t* seconds);
// As a sleep, which is all that the module uses it for. A cancellation point.
int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);

int pthread_mutex_lock(pthread_mutex_t* mutex);
int pthread_mutex_unlock(pthread_mutex_t* mutex);
pthread_t pthread_self();
int pthread_setcancelstate(int state, int* old_state);
void pthread_testcancel();
pid_t getpid();

int msgget(key_t key, int flags);
ssize_t msgrcv(int id, void* message, size_t capacity, long type, int flags);
int msgsnd(int id, const void* message, size_t size, int flags);
int mq_unlink(const char* name);

void* allocate(size_t bytes, const std::nothrow_t&);
void release(void* memory);
void release_sized(void* memory, size_t bytes);

// What the module prints goes nowhere.
int printf(const char* format, ...);
int fprintf(FILE* file, const char* format, ...);
int printf_chk(int flag, const char* format, ...);
int fprintf_chk(FILE* file, int flag, const char* format, ...);
int puts(const char* text);
int fputs(const char* text, FILE* file);
size_t fwrite(const void* data, size_t size, size_t count, FILE* file);
void perror(const char* text);

}  // namespace erps::sim::calls
