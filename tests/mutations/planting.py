"""Builds the module, and programs that contain it, with one of its sources changed."""
import json
import pathlib
import shlex
import subprocess
import threading

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


class CannotBuild(Exception):
    pass


class Build:
    """A build directory of CMake and Ninja, whose own commands compile and link what is changed."""

    def __init__(self, directory):
        self.directory = directory.resolve()
        self.scratch = self.directory / "mutants"
        self.lock = threading.Lock()
        self.built = {}  # by mistake and product
        try:
            entries = json.loads((self.directory / "compile_commands.json").read_text())
        except FileNotFoundError as error:
            raise CannotBuild(f"{directory} is no build directory") from error
        self.compilations = {entry["file"]: shlex.split(entry["command"]) for entry in entries
                             if "/erps_objects.dir/" in entry["command"]}

    def program(self, name):
        return self._there("bin/" + name)

    @property
    def module(self):
        return self._there("lib/liberps.so")

    def _there(self, product):
        path = self.directory / product
        if not path.exists():
            raise CannotBuild(f"there is no {path}; build it first")
        return path

    def mutated(self, mutant, product):
        """The path of a product, "lib/liberps.so" or "bin/...", that contains the mistake."""
        self._there(product)
        with self.lock:
            if (mutant["name"], product) in self.built:
                return self.built[mutant["name"], product]
        source = ROOT / mutant["file"]
        scratch = self.scratch / mutant["name"]
        scratch.mkdir(parents=True, exist_ok=True)
        copy, changed = scratch / source.name, scratch / (source.name + ".o")
        copy.write_text(source.read_text().replace(mutant["original"], mutant["mutated"]))
        command = self.compilations[str(source)]  # "... -o OBJECT -c SOURCE"
        sound = command[-3]
        # A mistake may leave something unused.
        command = [word for word in command[:-4] if word != "-Werror"]
        self._run(command + ["-w", "-o", str(changed), "-c", str(copy)], mutant)
        linked = scratch / pathlib.Path(product).name
        self._run(self._link_command(product, sound, changed, linked), mutant)
        with self.lock:
            self.built[mutant["name"], product] = linked
        return linked

    def _link_command(self, product, sound, changed, linked):
        """That of the build, which is a line of the shell, with two files exchanged."""
        listed = self._run(["ninja", "-t", "commands", product]).splitlines()[-1]
        exchanged = {sound: str(changed), product: str(linked)}
        words = [exchanged.get(word, word) for word in listed.split(" ")]
        if str(changed) not in words or str(linked) not in words:
            raise CannotBuild(f"cannot tell how {product} is linked: {listed}")
        return ["sh", "-c", " ".join(words)]

    def _run(self, command, mutant=None):
        done = subprocess.run(command, cwd=self.directory, text=True, capture_output=True)
        if done.returncode != 0:
            what = mutant["name"] if mutant else command[0]
            raise CannotBuild(f"{what} cannot be built:\n{done.stderr or done.stdout}")
        return done.stdout
