#!/usr/bin/env python3
"""Is the suite tested: script/mutants.py [--share N] [--only PATTERN] [--preset NAME] [-v]

Makes each fault of tests/mutants/ in a copy of its file, builds the one object and what it is linked into, and runs the
suite until a test fails. A fault that no test catches is a survivor. Build presets debug and asan first: script/check
mutants does.

An entry of tests/mutants/*.txt, blank line behind:

    FILE: KIND[, asan]
    - the text as it stands, once in the file
    + the text as it is changed
    ! what this would do to a phone, to a line or to who reads the answer
    = equivalent: why nobody can tell          (or "= survives: why it is not caught")

Further lines of a text begin with "-" or "+" as well. With "asan" the run is that of the sanitizers.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "tests" / "mutants"
WORK = ROOT / "build" / "mutants"
KINDS = {"constant", "order", "width", "comparison", "missing call", "missing clearing", "errno", "camera", "mode",
         "precision", "log line"}
WORKERS = 2
LEAST = 97  # percent of the faults that can be told apart have to be caught
MEMORY = 8 << 30  # bytes of address space of a test; the sanitizers' own takes more than any limit


@dataclasses.dataclass
class Mutant:
    place: str
    file: str
    kind: str
    preset: str = "debug"
    before: list = dataclasses.field(default_factory=list)
    after: list = dataclasses.field(default_factory=list)
    effect: str = ""
    mark: str = ""
    reason: str = ""

    def source(self):
        """The file with the fault in it."""
        text = (ROOT / self.file).read_text()
        before = "\n".join(self.before)
        if text.count(before) != 1:
            sys.exit(f"{self.place}: the text stands {text.count(before)} times in {self.file}: {before}")
        return text.replace(before, "\n".join(self.after))


def parse(path):
    mutants, current = [], None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        place = f"{path.relative_to(ROOT)}:{number}"
        first, rest = line[:1], line[2:]
        if not line or first == "#":
            current = None
        elif current is None:
            found = re.fullmatch(r"(\S+): ([a-z ]+?)(, asan)?", line)
            if not found or found[2] not in KINDS:
                sys.exit(f"{place}: not a file and a kind: {line}")
            current = Mutant(place, found[1], found[2], "asan" if found[3] else "debug")
            mutants.append(current)
        elif first == "-":
            current.before.append(rest)
        elif first == "+":
            current.after.append(rest)
        elif first == "!":
            current.effect = rest
        elif first == "=":
            current.mark, _, current.reason = rest.partition(": ")
        else:
            sys.exit(f"{place}: not a line of a mutant: {line}")
    for each in mutants:
        if not each.before or each.before == each.after or not each.effect:
            sys.exit(f"{each.place}: needs what stands, what it becomes and the effect")
        if each.mark not in ("", "equivalent", "survives") or bool(each.mark) != bool(each.reason):
            sys.exit(f"{each.place}: marked neither 'equivalent: WHY' nor 'survives: WHY'")
    return mutants


class Build:
    """A build folder's own commands, to be run again with other files."""

    def __init__(self, preset):
        self.folder = ROOT / "build" / preset
        self.commands = json.loads((self.folder / "compile_commands.json").read_text())
        listed = json.loads(self.ask("ctest", "--show-only=json-v1"))
        self.tests = {each["name"]: each["command"] for each in listed["tests"]}
        self.links = {}
        self.users = collections.defaultdict(list)  # of a header or source: compile commands
        for each in self.commands:
            words = shlex.split(each["command"])
            each["output"] = words[words.index("-o") + 1]
        outputs = {os.path.normpath(self.folder / each["output"]): each for each in self.commands}
        command = None
        for line in self.ask("ninja", "-t", "deps").splitlines():
            if not line.startswith(" "):
                command = outputs.get(os.path.normpath(self.folder / line.partition(":")[0]))
            elif command and "/tests/" not in command["file"]:
                path = os.path.realpath(self.folder / line.strip())
                if command not in self.users[path]:
                    self.users[path].append(command)

    def ask(self, *command):
        return subprocess.run(command, cwd=self.folder, check=True, capture_output=True, text=True).stdout

    def link(self, target):
        """The command that makes a target, as words."""
        if target not in self.links:
            line = self.ask("ninja", "-t", "commands", target).splitlines()[-1]
            self.links[target] = shlex.split(line.removeprefix(": && ").split(" && ")[0])
        return self.links[target]

    def objects(self, archive):
        lines = self.ask("ninja", "-t", "query", archive).splitlines()
        return [line.strip() for line in lines if line.strip().endswith(".o")]


class Variant:
    """What is built anew for one fault, in a folder of its own; programs are linked when a test needs them."""

    def __init__(self, build, folder):
        self.build, self.folder = build, folder
        self.linking = threading.Lock()
        self.instead = {}  # a file of the build -> the file that takes its place
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)

    def run(self, command):
        done = subprocess.run(command, cwd=self.build.folder, capture_output=True, text=True)
        if done.returncode:
            sys.exit(f"does not build: {shlex.join(command)}\n{done.stderr[:2000]}")

    def compile(self, file, text):
        overlay = self.folder / "source"
        (overlay / file).parent.mkdir(parents=True, exist_ok=True)
        (overlay / file).write_text(text)
        users = self.build.users[str(ROOT / file)]
        if file.endswith(".h") and not file.startswith(("tools/", "phone/")):
            # The tool's own objects keep the header as it is: the fault is the library's.
            users = [each for each in users if "/tools/" not in each["file"] and "/phone/" not in each["file"]]
        if not users:
            sys.exit(f"{file}: nothing is built from it")
        for index, each in enumerate(users):
            words = shlex.split(each["command"])
            if "ccache" in words[0]:
                words = words[1:]
            compiled = self.folder / f"{pathlib.Path(file).stem}.{index}.o"
            words[words.index("-o") + 1] = str(compiled)
            if each["file"] == str(ROOT / file):
                words = [str(overlay / file) if word == each["file"] else word for word in words]
            for place in ("tools", "include", ""):
                words[1:1] = ["-iquote", str(overlay / place)]
            words[1:1] = ["-iquote", str((ROOT / file).parent), "-Wno-error", "-w"]
            self.run(words)
            self.replace(each["output"], compiled)

    def replace(self, output, compiled):
        """Puts an object in the place of another: in the library now, in an archive, or in the tool's program."""
        where, target = re.match(r"(.*?)/?CMakeFiles/([^/]+)\.dir/", output).groups()
        self.instead[output] = str(compiled)
        if target == "awb_calibration":
            self.link("libawb_calibration.so")
            return
        archive = f"{where}/lib{target}.a"
        if archive in self.build.link("awbcal") or "phone" in where:
            self.archive(archive)

    def archive(self, archive):
        made = self.folder / os.path.basename(archive)
        made.unlink(missing_ok=True)
        objects = [self.instead.get(each, str(self.build.folder / each)) for each in self.build.objects(archive)]
        self.run(["ar", "rcsT", str(made), *objects])
        self.instead[archive] = str(made)

    def link(self, target):
        words = [self.instead.get(word, word) for word in self.build.link(target)]
        made = self.folder / os.path.basename(target)
        words[words.index("-o") + 1] = str(made)
        self.run([*words, "-Wl,-S"])
        return str(made)

    def program(self, path):
        """The program to run in the place of one of the build: a new one where what it is made of has changed."""
        name = os.path.relpath(path, self.build.folder)
        made = self.folder / name
        with self.linking:
            if not made.exists() and any(word in self.instead for word in self.build.link(name)):
                self.link(name)
            return str(made) if made.exists() else path

    def passes(self, test, limit):
        command = self.build.tests[test]
        program = self.program(command[0])
        tool = self.program(self.build.folder / "awbcal")
        def limit_memory():
            if self.build.folder.name != "asan":
                resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))

        environment = dict(os.environ, LD_LIBRARY_PATH=str(self.folder), AWBCAL=str(tool), GTEST_FAIL_FAST="1")
        process = subprocess.Popen([program, *command[1:]], cwd=self.build.folder, env=environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   start_new_session=True, preexec_fn=limit_memory)
        try:
            (self.folder / f"{test}.txt").write_bytes(process.communicate(timeout=limit)[0][-100000:])
            return process.returncode == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()


class Suite:
    """The tests of one build: how long each takes, and which one is likely to catch a fault of a file."""

    def __init__(self, preset):
        self.build = Build(preset)
        self.preset = preset
        self.near_only = False
        self.seconds = {}
        self.caught = collections.defaultdict(collections.Counter)
        memory = WORK / f"{preset}.json"
        if memory.exists():
            for name, counts in json.loads(memory.read_text()).items():
                self.caught[name].update(counts)

    def measure(self):
        """Without a fault, but built in the same way, every test passes."""
        variant = Variant(self.build, WORK / "none")
        for file in ("records/judgement.cpp", "tools/text/tables.cpp", "phone/calls/faults.cpp"):
            variant.compile(file, (ROOT / file).read_text())

        def run(test):
            started = time.monotonic()
            if not variant.passes(test, 200):
                raise RuntimeError(f"{test} fails without a fault: see build/mutants/none/{test}.txt")
            self.seconds[test] = time.monotonic() - started

        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            list(pool.map(run, self.build.tests))

    def estimate(self, plain):
        """The sanitizers' tests take ten times as long, and are not all there."""
        if self is not plain:
            self.seconds = {test: 10 * plain.seconds[test] for test in self.build.tests}

    def order(self, file):
        """First what has caught a fault of the file or of its folder before, then what is quick."""
        area = file.split("/")[0]

        def key(test):
            nearby = self.caught[area][test] / (1 + self.seconds[test])
            return (-self.caught[file][test], -nearby, self.is_far(file, test), self.seconds[test])

        return sorted(self.build.tests, key=key)

    @staticmethod
    def is_far(file, test):
        """Whether it is the tool's test and the file the library's, or the reverse."""
        return test.startswith("awbcal_") != file.startswith("tools/")

    def catches(self, mutant, folder):
        """The test that fails, or nothing."""
        variant = Variant(self.build, folder)
        variant.compile(mutant.file, mutant.source())
        for test in self.order(mutant.file):
            if self.near_only and self.is_far(mutant.file, test):
                continue
            if not variant.passes(test, 20 + 5 * self.seconds[test]):
                self.caught[mutant.file][test] += 1
                self.caught[mutant.file.split("/")[0]][test] += 1
                return test
        return None

    def remember(self):
        (WORK / f"{self.preset}.json").write_text(json.dumps(self.caught))


def chosen(share, only, preset):
    mutants = [each for path in sorted(LIST.glob("*.txt")) for each in parse(path)]
    for each in mutants:
        each.source()
    mutants = [each for each in mutants if re.search(only, f"{each.place}:{each.file}") and preset in each.preset]
    return mutants[::share]


def judge(mutant, suites, folders):
    folder = folders.pop()
    try:
        test = suites[mutant.preset].catches(mutant, folder)
    except SystemExit as error:
        return mutant, None, f"{mutant.place}: {error}"
    finally:
        folders.append(folder)
    if test and mutant.mark:
        return mutant, test, f"{mutant.place}: marked as '{mutant.mark}', but {test} catches it"
    if not test and not mutant.mark:
        return mutant, test, f"{mutant.place}: no test catches it: {mutant.effect}"
    return mutant, test, None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--share", type=int, default=1, metavar="N", help="every N-th fault alone")
    parser.add_argument("--only", default="", metavar="PATTERN",
                        help="those whose place:file has this regular expression in it")
    parser.add_argument("--preset", default="", metavar="NAME", help="those of one build alone: debug or asan")
    parser.add_argument("--near", action="store_true", help="leave the tool's tests out for the library, and the reverse")
    parser.add_argument("-v", action="store_true", help="say of each which test catches it")
    arguments = parser.parse_args()
    mutants = chosen(arguments.share, arguments.only, arguments.preset)
    if not mutants:
        sys.exit("no mutant is meant")
    WORK.mkdir(parents=True, exist_ok=True)
    started = time.monotonic()
    suites = {preset: Suite(preset) for preset in sorted({each.preset for each in mutants}, reverse=True)}
    plain = suites.get("debug") or Suite("debug")
    plain.measure()
    for suite in suites.values():
        suite.near_only = arguments.near
        suite.estimate(plain)
    caught, problems = 0, []
    folders = [WORK / str(number) for number in range(WORKERS)]
    marks = collections.Counter()
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        running = [pool.submit(judge, each, suites, folders) for each in mutants]
        for future in concurrent.futures.as_completed(running):
            mutant, test, problem = future.result()
            caught += bool(test)
            marks[mutant.mark] += not test
            if problem:
                problems.append(problem)
                print(problem, flush=True)
            elif arguments.v:
                print(f"{mutant.place}: {test or mutant.mark}", flush=True)
    for suite in suites.values():
        suite.remember()
    survived = marks["survives"] + marks[""]
    percent = 100 * caught / max(1, caught + survived)
    for each in mutants:
        if each.mark:
            print(f"{each.place}: {each.mark}: {each.reason}")
    print(f"{len(mutants)} mutants: {caught} caught, {survived} survived, {marks['equivalent']} equivalent: "
          f"{percent:.1f} % of those that differ, "
          f"in {time.monotonic() - started:.0f} s")
    if problems or percent < LEAST and arguments.share == 1 and not arguments.only:
        sys.exit(1)


if __name__ == "__main__":
    main()
