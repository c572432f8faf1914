"""What finds a planted mistake: each plays a scenario with a module and says what it found.

play(mutant, scenario) plays the module with the mistake, or the sound one where mutant is None, and
returns the names of the checks that found something, the first one first.
"""
import json
import os
import re
import shlex
import subprocess

from planting import ROOT

NO_END = "no end"
CRASH = "crash"


class FinderFailed(Exception):
    pass


def run(command, longest_s, **options):
    """The ended process, or the name of the check that it is when it came to no good end."""
    try:
        done = subprocess.run([str(word) for word in command], cwd=ROOT, text=True, capture_output=True,
                              timeout=longest_s, **options)
    except subprocess.TimeoutExpired:
        return NO_END
    return CRASH if done.returncode < 0 else done


def expect_status(done, allowed):
    if done.returncode not in allowed:
        raise FinderFailed(f"{shlex.join(done.args)}:\n{done.stderr}")


class Simulation:
    """erpslab simulate, which judges a campaign or one play of it by the checks of the simulator."""
    name = "simulate"
    LONGEST_S = 120
    # Where a search looks, in this order: campaigns that end by themselves, which are run as a
    # whole ...
    WHOLE_CAMPAIGNS = ("examples/four-node-ring.toml --exhaustive --seed 1",
                       "examples/ladder.toml --every-link --seed 1")
    # ... and random ones, each with so many numbers.
    RANDOM_CAMPAIGNS = (("--rings 2-3 --faults random --seed 1", 20),
                        ("--rings 2-16 --faults random --seed 1", 20),
                        ("--rings 2-16 --faults random --seed 2", 20),
                        ("--rings 2-16 --faults random --seed 3", 20))

    def __init__(self, build):
        self.build = build

    def report(self, mutant, arguments):
        module = self.build.mutated(mutant, "lib/liberps.so") if mutant else self.build.module
        done = run([self.build.program("erpslab"), "simulate", *shlex.split(arguments),
                    "--module", module, "--json"], self.LONGEST_S)
        if isinstance(done, str):
            return done
        expect_status(done, (0, 1))
        return json.loads(done.stdout)

    def play(self, mutant, scenario):
        report = self.report(mutant, scenario)
        if isinstance(report, str):
            return [report]
        checks = []
        for check in report["checks"]:
            named = re.fullmatch("no (.*) finding", check["what"])
            if not check["holds"]:
                checks.append(named[1] if named else check["what"])
        return list(dict.fromkeys(checks))

    def suspects(self, mutant):
        """Scenarios that may find this mistake, the likely and quick ones first."""
        for campaign in self.WHOLE_CAMPAIGNS:
            report = self.report(mutant, f"{campaign} --jobs 1 --scenarios {self.build.scratch}")
            if isinstance(report, dict):
                failing = [result["number"] for result in report["results"] if not result["passed"]]
                yield from (f"{campaign} --only {number}" for number in failing[:5])
        for campaign, most in self.RANDOM_CAMPAIGNS:
            for number in range(most):
                yield f"{campaign} --only {number}"


class Exploration:
    """erpslab explore, which visits every state of a small ring; the sound module's are exhausted."""
    name = "explore"
    LONGEST_S = 120
    RING = "tests/mutations/ring-of-two.toml"
    SUB_RING = "tests/mutations/open-ring-of-two.toml"
    SUSPECTS = (RING, f"{RING} --cuts 0 --commands 2", f"{RING} --cuts 0 --crashes 1",
                f"{RING} --cuts 0 --strands 1", f"{SUB_RING} --cuts 0 --strands 1")

    def __init__(self, build):
        self.build = build

    def play(self, mutant, scenario):
        module = self.build.mutated(mutant, "lib/liberps.so") if mutant else self.build.module
        done = run([self.build.program("erpslab"), "explore", *shlex.split(scenario), "--module", module,
                    "--json", "--scenario", module.parent / "explored.scenario" if mutant else os.devnull],
                   self.LONGEST_S)
        if isinstance(done, str):
            return [done] if done == CRASH or not mutant else []
        expect_status(done, (0, 1, 3))
        report = json.loads(done.stdout)
        if report["violation"]:
            return [re.split(", for good|:", report["violation"]["what"])[0]]
        return [] if report["exhausted"] or mutant else ["not exhausted"]

    def suspects(self, _mutant):
        yield from self.SUSPECTS


def sanitizer_reports(text):
    """Kinds, such as "data race"."""
    return list(dict.fromkeys(re.findall(r"WARNING: ThreadSanitizer: ([a-z -]+?) \(", text)))


class Races:
    """The tasks of simulated modules under ThreadSanitizer; a scenario is seconds and seeds."""
    name = "races"
    LONGEST_S = 300
    SUSPECTS = ("60 1", "300 1 2 3")

    def __init__(self, build):
        self.build = build

    def play(self, mutant, scenario):
        module = self.build.mutated(mutant, "lib/liberps.so") if mutant else self.build.module
        done = run([self.build.program("ring_trace_hash"), module, *scenario.split()], self.LONGEST_S,
                   env=os.environ | {"TSAN_OPTIONS": "halt_on_error=1"})
        if isinstance(done, str):
            return [done]
        reports = sanitizer_reports(done.stderr)
        return reports or (["violation"] if done.returncode != 0 else [])

    def suspects(self, _mutant):
        yield from self.SUSPECTS


class Stress:
    """Everything at once in real threads under ThreadSanitizer; a scenario is a filter of its tests.

    Which threads meet is chance: what one run has missed, another one may find.
    """
    name = "stress"
    LONGEST_S = 300
    RUNS = 10
    SUSPECTS = ("Stress.EverythingAtOnce", "Stress.RestartedAllTheTime")

    def __init__(self, build):
        self.build = build

    def play(self, mutant, scenario):
        program = self.build.mutated(mutant, "bin/stress_test") if mutant else self.build.program("stress_test")
        for _ in range(self.RUNS if mutant else 1):
            done = run([program, f"--gtest_filter={scenario}"], self.LONGEST_S,
                       env=os.environ | {"TSAN_OPTIONS": "halt_on_error=1"})
            if isinstance(done, str):
                return [done]
            if done.returncode != 0:
                return sanitizer_reports(done.stderr) or ["failed test"]
        return []

    def suspects(self, _mutant):
        yield from self.SUSPECTS


# In the order in which a search asks them; those of TSAN need a build of their own.
PLAIN = (Simulation, Exploration)
TSAN = (Races, Stress)
