"""Tries small changes of the sources one by one and reports those that no test notices.

Run by scripts/mutation-test, from the project's root.
"""

import argparse
import concurrent.futures
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass

ROOT = pathlib.Path.cwd()
HERE = pathlib.Path(__file__).resolve().parent
DIRECTORIES = ("kelCore", "kelLibsndfile")
# So long that a program that hangs is not taken for one that had to wait for the processor.
TEST_TIMEOUT_SECONDS = 600

TURNED = {
    " == ": " != ", " != ": " == ",
    " < ": " <= ", " <= ": " < ",
    " > ": " >= ", " >= ": " > ",
    " && ": " || ", " || ": " && ",
    " + ": " - ", " - ": " + ",
    "true": "false", "false": "true",
}


@dataclass(frozen=True)
class Mutation:
    file: str
    kind: str
    begin: int  # offsets into the file's text
    end: int
    replacement: str
    line: int
    original: str  # the line, stripped, by which it is known
    shown: str  # what became of it

    def key(self):
        return f"{self.kind} | {self.file} | {self.original} | {self.shown}"


def split_code(text):
    """Yields (offset, piece, kind) with kind code, string or comment."""
    token = re.compile(r'//[^\n]*|/\*.*?\*/|L?"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.S)
    place = 0
    for match in token.finditer(text):
        if match.start() > place:
            yield place, text[place:match.start()], "code"
        kind = "comment" if match.group().startswith("/") else (
            "string" if match.group().endswith('"') else "character")
        yield match.start(), match.group(), kind
        place = match.end()
    yield place, text[place:], "code"


def line_of(text, offset):
    begin = text.rfind("\n", 0, offset) + 1
    end = text.find("\n", offset)
    return text.count("\n", 0, offset) + 1, text[begin:end if end >= 0 else len(text)].strip()


def make(text, file, kind, begin, end, replacement):
    number, original = line_of(text, begin)
    removed = text[begin:end]
    shown = f"{' '.join(removed.split())} -> {' '.join(replacement.split()) or 'nothing'}"
    return Mutation(file, kind, begin, end, replacement, number, original, shown)


def matching_end(text, begin):
    """The offset behind the ';' that ends the statement that begins here."""
    depth = 0
    for offset, piece, kind in split_code(text[begin:]):
        if kind != "code":
            continue
        for i, character in enumerate(piece):
            depth += (character in "({[") - (character in ")}]")
            if character == ";" and depth == 0:
                return begin + offset + i + 1
    return None


STATEMENT = re.compile(
    r"^(?P<indent> {4,})(?!return|throw|using|static_assert|case|default|break|continue|public|private"
    r"|class|struct|const |constexpr|auto|delete|if|for|while|else|\})"
    r"(?P<body>[A-Za-z_:*+~\-][^\n]*);[^\n]*?(?= *\\?$)", re.M)
# What stands before the 0 of a function that is left to others.
PURE = re.compile(r"\)(?:\s+const)?(?:\s+noexcept)?\s*=\s*$")


def statements(text):
    """Single-line statements that are no declarations, as (begin, end, indent)."""
    for match in STATEMENT.finditer(text):
        body = match.group("body")
        is_assignment = re.match(r"^[\w.\->\[\]*()]+ [+\-|&]?= ", body)
        is_call = re.match(r"^[\w.:\->\[\]*]+(<[\w:]+>)?\(", body) or re.match(r"^(\+\+|--)", body)
        if (is_assignment or is_call) and body.count("(") == body.count(")"):
            yield match.start(), match.end(), match.group("indent")


def mutations_of(file):
    text = (ROOT / file).read_text()
    found = []
    for offset, piece, kind in split_code(text):
        if kind == "string" and not line_of(text, offset)[1].startswith("#"):
            found.append(make(text, file, "text", offset, offset + len(piece), piece[:-1] + '~"'))
        if kind != "code":
            continue
        for before, after in TURNED.items():
            pattern = re.escape(before) if before.startswith(" ") else rf"\b{before}\b"
            for match in re.finditer(pattern, piece):
                begin = offset + match.start()
                if line_of(text, begin)[1].startswith(("#", "template", "static_assert")):
                    continue
                found.append(make(text, file, "operator", begin, begin + len(match.group()), after))
        for match in re.finditer(r"(?<![\w.\"'])(0x[0-9A-Fa-f]+|\d+)(?=U?\b(?!\w))", piece):
            begin = offset + match.start()
            if line_of(text, begin)[1].startswith("#") or PURE.search(text[:begin]):
                continue
            number = int(match.group(), 0)
            found.append(make(text, file, "constant", begin, begin + len(match.group()),
                              str(number + 1)))
        for match in re.finditer(r"\bKEL_(FAIL|CHECK\w*)\(", piece):
            begin = offset + match.start()
            end = matching_end(text, begin)
            if end is not None:
                found.append(make(text, file, "check", begin, end, ";"))
    plain = list(statements(text))
    for begin, end, _ in plain:
        if not re.search("KEL_FAIL|KEL_CHECK|= delete;|= default;", text[begin:end]):
            found.append(make(text, file, "statement", begin + len(text[begin:end]) -
                              len(text[begin:end].lstrip()), end, ";"))
    for (begin, end, indent), (next_begin, next_end, next_indent) in zip(plain, plain[1:]):
        if next_begin == end + 1 and indent == next_indent:
            found.append(make(text, file, "order", begin, next_end,
                              text[next_begin:next_end] + "\n" + text[begin:end]))
    return found


def oddities():
    """Mutations written by hand: blocks of "file", "<<<", original, "===", replacement, ">>>"."""
    found = []
    blocks = re.finditer(r"^([\w/.]+)\n<<<\n(.*?)\n===\n(.*?)\n?>>>$",
                         (HERE / "oddities.txt").read_text(), re.M | re.S)
    for block in blocks:
        file, original, replacement = block.groups()
        text = (ROOT / file).read_text()
        if text.count(original) != 1:
            sys.exit(f"oddities.txt: stands {text.count(original)} times in {file}:\n{original}")
        begin = text.index(original)
        found.append(make(text, file, "oddity", begin, begin + len(original), replacement))
    return found


def equivalents():
    """The keys of what cannot be noticed, each with its reason on the line below it."""
    lines = (HERE / "equivalent.txt").read_text().splitlines()
    keys = {}
    for line, reason in zip(lines, lines[1:]):
        if " | " in line and reason.startswith("    "):
            keys[line] = reason.strip()
    return keys


class Tree:
    """A copy of the project that is built, changed, tested and put right again."""

    def __init__(self, directory):
        self.directory = directory
        self.build = directory / "build" / "mutation-test"
        directory.mkdir(parents=True, exist_ok=True)
        tracked = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True)
        for name in tracked.stdout.decode().split("\0"):
            if name and (ROOT / name).is_file():
                target = directory / name
                target.parent.mkdir(parents=True, exist_ok=True)
                data = (ROOT / name).read_bytes()
                if not target.exists() or target.read_bytes() != data:
                    target.write_bytes(data)
                    shutil.copymode(ROOT / name, target)
        self.run(["cmake", "-G", "Ninja", "-S", ".", "-B", self.build, "-DCMAKE_BUILD_TYPE=Debug",
                  "-DKEL_GROUPS=ON", "-DKEL_WARNINGS_AS_ERRORS=OFF"])
        self.targets = [target for target in
                        re.findall(r"^(kel(?:Core|Libsndfile)\w*Tests): phony", self.run(
                            ["ninja", "-C", self.build, "-t", "targets", "all"]), re.M)
                        if "Binary" not in target]
        self.run(["ninja", "-C", self.build, "kelLibsndfile", *self.targets])
        self.times = {target: 0.0 for target in self.targets}
        self.noticed = {target: 0 for target in self.targets}
        failed = self.outcome()
        if failed:
            sys.exit(f"The tests fail without a change: {failed}")

    def run(self, command):
        result = subprocess.run([str(part) for part in command], cwd=self.directory, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            sys.exit(result.stdout)
        return result.stdout

    def outcome(self):
        """"does not compile", the test that fails, or None.

        What noticed most comes first, then what takes least, and nothing is built that is not needed
        to know: a change in a header would have everything compiled.
        """
        for target in sorted(self.targets, key=lambda one: (-self.noticed[one], self.times[one])):
            # The plug-in is loaded by the tests; some of them have its sources built in.
            built = subprocess.run(["ninja", "-C", str(self.build), "kelLibsndfile", target],
                                   cwd=self.directory, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
            if built.returncode != 0:
                return "does not compile"
            failed = self.failing_test(target)
            if failed:
                self.noticed[target] += 1
                return f"{target}: {failed}"
        return None

    def failing_test(self, target):
        start = time.monotonic()
        # The limit holds as well where this program is ended before.
        result = subprocess.run(
            ["timeout", "--signal=KILL", str(TEST_TIMEOUT_SECONDS), str(self.build / "tests" / target),
             "--gtest_fail_fast", "--gtest_brief=1"],
            cwd=self.build, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            stdin=subprocess.DEVNULL, errors="replace")
        took = time.monotonic() - start
        if result.returncode != 0 and took >= TEST_TIMEOUT_SECONDS:
            return "hangs"
        self.times[target] = took
        if result.returncode == 0:
            return None
        names = re.findall(r"\[  FAILED  \] ([\w./]+)", result.stdout)
        return names[0] if names else "crash"

    def attempt(self, mutation):
        """What noticed the change: "does not compile", a test, or None."""
        path = self.directory / mutation.file
        text = path.read_text()
        path.write_text(text[:mutation.begin] + mutation.replacement + text[mutation.end:])
        try:
            return self.outcome()
        finally:
            path.write_text(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--only", default="", help="only files that match this expression")
    parser.add_argument("--kinds", help="only these: oddity,text,check,operator,constant,statement,order")
    parser.add_argument("--list", action="store_true", help="show the changes, try none")
    parser.add_argument("--jobs", type=int, default=1, help="copies of the tree at work at once")
    parser.add_argument("--report", help="write every outcome into this file")
    arguments = parser.parse_args()

    files = []
    for directory in DIRECTORIES:
        files += sorted((ROOT / directory).glob("*.cpp")) + sorted((ROOT / directory).glob("include/*.h"))
    mutations = oddities()
    for file in files:
        mutations += mutations_of(str(file.relative_to(ROOT)))
    kinds = arguments.kinds.split(",") if arguments.kinds else None
    mutations = [mutation for mutation in mutations if re.search(arguments.only, mutation.file) and
                 (kinds is None or mutation.kind in kinds)]
    known = equivalents()
    explained = [mutation for mutation in mutations if mutation.key() in known]
    mutations = [mutation for mutation in mutations if mutation.key() not in known]
    if arguments.list:
        for mutation in mutations:
            print(f"{mutation.file}:{mutation.line}: {mutation.kind}: {mutation.shown}")
        return

    trees = queue.Queue()
    for number in range(arguments.jobs):
        trees.put(Tree(ROOT / "build" / "mutation-test" / str(number)))

    def attempt(mutation):
        tree = trees.get()
        try:
            return mutation, tree.attempt(mutation)
        finally:
            trees.put(tree)

    report = open(arguments.report, "w") if arguments.report else None
    survivors, noticed, invalid = [], 0, 0
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for number, (mutation, outcome) in enumerate(pool.map(attempt, mutations), 1):
            if outcome == "does not compile":
                invalid += 1
            elif outcome:
                noticed += 1
            else:
                survivors.append(mutation)
                print(f"SURVIVED {mutation.file}:{mutation.line}\n{mutation.key()}", flush=True)
            if report:
                report.write(f"{outcome or 'SURVIVED'}\t{mutation.key()}\n")
                report.flush()
            if number % 25 == 0:
                print(f"... {number} of {len(mutations)}", file=sys.stderr, flush=True)
    print(f"{len(mutations)} changes: {noticed} noticed, {invalid} do not compile, "
          f"{len(survivors)} survived; {len(explained)} more are known to be equivalent")
    sys.exit(1 if survivors else 0)


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C.UTF-8"
    main()
