// Marks what the shared object exports; everything else is hidden.
#pragma once

#define ERPS_EXPORT __attribute__((visibility("default")))
