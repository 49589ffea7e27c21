"""Makes small changes to the sources one by one and reports those that no test notices.

scripts/mutation-test runs it in the project's root.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path.cwd()
HERE = pathlib.Path(__file__).resolve().parent
DIRECTORIES = ("kelCore", "kelLibsndfile")
# A program hangs when it takes this long and this many times as long as without a change.
HANG_SECONDS, HANG_FACTOR = 30, 20

TURNED = {
    " == ": " != ", " != ": " == ",
    " < ": " <= ", " <= ": " < ",
    " > ": " >= ", " >= ": " > ",
    " && ": " || ", " || ": " && ",
    " + ": " - ", " - ": " + ",
    "true": "false", "false": "true",
}


@dataclasses.dataclass(frozen=True)
class Mutation:
    file: str
    kind: str
    begin: int  # offsets into the file's text
    end: int
    replacement: str
    line: int
    original: str  # the line, stripped, which identifies the change
    shown: str  # the text before and after the change
    is_marked: bool = False  # in a statement that is marked as intentional

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
    """The offset after the ';' or the block that ends the statement that begins here."""
    depth = 0
    has_block = re.match(r"(if|for|while|do|switch|try)\b", text[begin:])
    for offset, piece, kind in split_code(text[begin:]):
        if kind != "code":
            continue
        for i, character in enumerate(piece):
            depth += (character in "({[") - (character in ")}]")
            # A brace at the beginning of a line ends a function.
            if depth == 0 and (character == ";" or (
                    character == "}" and (has_block or text[begin + offset + i - 1] == "\n"))):
                return begin + offset + i + 1
    return None


MARKER = re.compile(r"//+ (Intentional: [^\n]*(?:\n *//[^\n]*)*)")


def markers(text):
    """The marked statements, as (line, comment, begin, end). A comment after code is about its line."""
    for match in MARKER.finditer(text):
        line_begin = text.rfind("\n", 0, match.start()) + 1
        begin = line_begin if text[line_begin:match.start()].strip() else match.end()
        begin = re.compile(r"(?:\s|//[^\n]*)*").match(text, begin).end()
        comment = " ".join(re.sub(r"\n *//+", " ", match[1]).split())
        yield text.count("\n", 0, match.start()) + 1, comment, begin, matching_end(text, begin)


STATEMENT = re.compile(
    r"^(?P<indent> {4,})(?!return|throw|using|static_assert|case|default|break|continue|public|private"
    r"|class|struct|const |constexpr|auto|delete|if|for|while|else|\})"
    r"(?P<body>[A-Za-z_:*+~\-][^\n]*);[^\n]*?(?= *\\?$)", re.M)
# The text before the 0 of a pure virtual function.
PURE = re.compile(r"\)(?:\s+const)?(?:\s+noexcept)?\s*=\s*$")


def statements(text):
    """Single-line statements that are no declarations, as (begin, end, indent)."""
    for match in STATEMENT.finditer(text):
        body = match.group("body")
        is_assignment = re.match(r"^[\w.\->\[\]*()]+ [+\-|&]?= ", body)
        is_call = re.match(r"^[\w.:\->\[\]*]+(<[\w:]+>)?\(", body) or re.match(r"^(\+\+|--)", body)
        is_definition = re.search("= (?:delete|default)$", body)
        if (is_assignment or is_call) and not is_definition and body.count("(") == body.count(")"):
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
        if not re.search("KEL_FAIL|KEL_CHECK", text[begin:end]):
            found.append(make(text, file, "statement", begin + len(text[begin:end]) -
                              len(text[begin:end].lstrip()), end, ";"))
    for (begin, end, indent), (next_begin, next_end, next_indent) in zip(plain, plain[1:]):
        if next_begin == end + 1 and indent == next_indent:
            found.append(make(text, file, "order", begin, next_end,
                              text[next_begin:next_end] + "\n" + text[begin:end]))
    marked = [(begin, end) for _, _, begin, end in markers(text) if end is not None]
    found += [make(text, file, "intentional", begin, end, ";") for begin, end in marked]
    return [dataclasses.replace(mutation, is_marked=any(begin <= mutation.begin < end for begin, end in marked))
            for mutation in found]


def equivalents():
    """The keys of changes that no test can notice. The line after each has the reason."""
    lines = (HERE / "equivalent.txt").read_text().splitlines()
    return {line for line, reason in zip(lines, lines[1:]) if " | " in line and reason.startswith("    ")}


class Tree:
    """A copy of the project that is changed, built, tested and restored."""

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
        # Each file is compiled by itself, so that a change has few files compiled. A program does not
        # have to be linked again where only a library that it loads differs.
        self.run(["cmake", "-G", "Ninja", "-S", ".", "-B", self.build, "-DCMAKE_BUILD_TYPE=",
                  "-DCMAKE_CXX_FLAGS=-O0 -g0", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=mold",
                  "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=mold", "-DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=mold",
                  "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", "-DKEL_GROUPS=OFF", "-DKEL_PRECOMPILED_HEADERS=ON",
                  "-DKEL_WARNINGS_AS_ERRORS=OFF"])
        self.targets = [target for target in
                        re.findall(r"^(kel(?:Core|Libsndfile)\w*Tests): phony", self.run(
                            ["ninja", "-C", self.build, "-t", "targets", "all"]), re.M)
                        if "Binary" not in target]
        self.run(["ninja", "-C", self.build, "kelLibsndfile", *self.targets])
        self.times = {target: 0.0 for target in self.targets}
        self.limits = {}
        self.noticed = collections.Counter()
        self.header_tests = {}
        failed = self.outcome("")
        if failed:
            sys.exit(f"The tests fail without a change: {failed}")

    def run(self, command):
        result = subprocess.run([str(part) for part in command], cwd=self.directory, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            sys.exit(result.stdout)
        return result.stdout

    def builds(self, *targets):
        return subprocess.run(["ninja", "-C", str(self.build), *targets], cwd=self.directory,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def outcome(self, file):
        """"does not compile", the test that fails, or None.

        The programs that noticed most changes of the file come first, then those of its part, then the
        fastest. Each is built only when its turn comes.
        """
        part = file.split("/")[0]
        for target in sorted(self.targets, key=lambda one: (
                -self.noticed[file, one], not one.startswith(part), self.times[one])):
            # The tests load the plug-in. Some of them contain its sources.
            if not self.builds("kelLibsndfile", target):
                return "does not compile"
            failed = self.failing_test(target)
            if failed:
                self.noticed[file, target] += 1
                return f"{target}: {failed}"
        return None

    def header_test(self, header):
        """The file of kelCoreTests that tests a header and passes in a program of its own, or None."""
        if header not in self.header_tests:
            self.header_tests[header] = None
            name = pathlib.Path(header).name
            tests = sorted((path for path in (self.directory / "kelCore" / "tests").glob("*Tests.cpp")
                            if f"<{name}>" in path.read_text()),
                           key=lambda path: (path.stem != f"{name[:-2]}Tests", path.stat().st_size))
            for test in tests[:3]:
                if self.header_outcome(test.name) is None:
                    self.header_tests[header] = test.name
                    break
        return self.header_tests[header]

    def header_outcome(self, test):
        """The outcome of one file of kelCoreTests, linked with the core into a program of its own."""
        object_file = f"kelCore/tests/CMakeFiles/kelCoreTests.dir/{test}.o"
        if not self.builds("kelCore", object_file):
            return "does not compile"
        program = "tests/headerTest"
        linked = subprocess.run(["c++", "-fuse-ld=mold", object_file, "-o", program, "-Llib", "-lkelCore",
                                 "-Wl,-rpath," + str(self.build / "lib"), "-lgmock_main", "-lgmock", "-lgtest"],
                                cwd=self.build, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if linked.returncode != 0:
            return "cannot be linked"
        return self.failing_test("headerTest")

    def failing_test(self, target):
        start = time.monotonic()
        limit = self.limits.get(target, 600)
        # The limit still holds when this program is ended.
        result = subprocess.run(
            ["timeout", "--signal=KILL", str(limit), str(self.build / "tests" / target),
             "--gtest_fail_fast", "--gtest_brief=1"],
            cwd=self.build, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            stdin=subprocess.DEVNULL, errors="replace")
        took = time.monotonic() - start
        if result.returncode == 0:
            self.times[target] = took
            self.limits.setdefault(target, round(HANG_SECONDS + HANG_FACTOR * took))
            return None
        if took >= limit:
            return "hangs"
        names = re.findall(r"\[  FAILED  \] ([\w./]+)", result.stdout)
        return names[0] if names else "crash"

    def attempt(self, mutation):
        """"does not compile", the test that notices the change, or None."""
        is_header = mutation.file.endswith(".h")
        test = self.header_test(mutation.file) if is_header else None
        path = self.directory / mutation.file
        text = path.read_text()
        path.write_text(text[:mutation.begin] + mutation.replacement + text[mutation.end:])
        try:
            # A header changes most programs, so the file that tests it comes first.
            return (test and self.header_outcome(test)) or self.outcome(mutation.file)
        finally:
            path.write_text(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--only", default="", help="only files that match this expression")
    parser.add_argument("--kinds", help="only these: intentional,text,check,operator,constant,statement,order")
    parser.add_argument("--list", action="store_true", help="list the changes and the intentional statements, try none")
    parser.add_argument("--jobs", type=int, default=1, help="number of copies of the tree that work at once")
    parser.add_argument("--report", help="write every outcome into this file")
    arguments = parser.parse_args()

    mutations = []
    for path in sorted(path for directory in DIRECTORIES for pattern in ("*.cpp", "include/*.h")
                       for path in (ROOT / directory).glob(pattern)):
        file = str(path.relative_to(ROOT))
        mutations += mutations_of(file)
        if re.search(arguments.only, file):
            for line, comment, _, _ in markers(path.read_text()):
                print(f"{file}:{line}: {comment}")
    known = equivalents()
    stale = known - {mutation.key() for mutation in mutations}
    for key in sorted(stale):
        print(f"STALE in equivalent.txt: {key}")
    kinds = arguments.kinds.split(",") if arguments.kinds else None
    mutations = [mutation for mutation in mutations if re.search(arguments.only, mutation.file) and
                 (kinds is None or mutation.kind in kinds)]
    explained = [mutation for mutation in mutations if mutation.key() in known]
    mutations = sorted((mutation for mutation in mutations if mutation.key() not in known),
                       key=lambda mutation: not mutation.is_marked)
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
    sys.exit(1 if survivors or stale else 0)


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C.UTF-8"
    main()
