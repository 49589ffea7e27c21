"""Shared by the attacks on kelhost: inputs, runs, and the report.

scripts/soak runs the attacks in the project's root, after it has built the program. An attack prints the seed of
its random choices; "python3 scripts/attacks/mutants.py 3000 --seed N" makes them again.
"""

import argparse
import collections
import contextlib
import ctypes
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import time
import wave

ROOT = pathlib.Path.cwd()
HOST = ROOT / 'build/release/bin/kelhost'
TEMPORARY = '.kelhost-'  # how names of unfinished files begin
# A run that takes longer hangs. Runs take less than a second, but not on a busy machine.
HANG_SECONDS = 120
PR_SET_CHILD_SUBREAPER = 36


class Failure(Exception):
    """A run that did not behave; the text says how."""


def require(behaves, text):
    if not behaves:
        raise Failure(text)


class Attack:
    """Counts runs and their outcomes, and keeps the files of those that failed."""

    def __init__(self, name, default_count, description):
        parser = argparse.ArgumentParser(description=description)
        parser.add_argument('count', nargs='?', type=int, default=default_count,
                            help=f'number of runs; default: {default_count}')
        parser.add_argument('--seed', type=int, default=random.randrange(1 << 32),
                            help='repeats the random choices of an earlier attack')
        arguments = parser.parse_args()
        self.name, self.count, self.seed = name, arguments.count, arguments.seed
        self.random = random.Random(self.seed)
        self.outcomes = collections.Counter()
        self.failures = 0
        self.place = pathlib.Path(os.environ.get('KEL_SOAK_DIRECTORY', ROOT / 'build/soak')).resolve()
        self.place.mkdir(parents=True, exist_ok=True)

    @contextlib.contextmanager
    def directory(self):
        path = pathlib.Path(tempfile.mkdtemp(prefix=f'{self.name}-', dir=self.place))
        try:
            yield path
        finally:
            shutil.rmtree(path, ignore_errors=True)

    def run(self, attempt, count=None):
        """Calls attempt(number) for each run. It returns the name of its outcome, or raises Failure."""
        for number in range(self.count if count is None else count):
            try:
                self.outcomes[attempt(number)] += 1
            except Failure as failure:
                self.failures += 1
                print(f'{self.name}: run {number}: {failure}', file=sys.stderr)

    def end(self, count=None):
        """Prints the counts and ends the program."""
        outcomes = ', '.join(f'{count} {outcome}' for outcome, count in sorted(self.outcomes.items()))
        print(f'{self.name}: {count or self.count} runs, seed {self.seed}: {outcomes or "none behaved"}; '
              f'{self.failures} failed')
        sys.exit(self.failures > 0)


def write_wave(path, frames, seed, channels=2):
    """Writes 16-bit noise that another seed does not give."""
    noise = random.Random(seed).randbytes(2 * channels * min(frames, 65536))
    data = noise * (2 * channels * frames // max(len(noise), 1) + 1)
    with wave.open(str(path), 'wb') as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(48000)
        file.writeframes(data[:2 * channels * frames])


def command(*arguments):
    return [str(HOST), *map(str, arguments)]


def environment():
    return {name: value for name, value in os.environ.items() if not name.startswith(('KEL_', 'LD_'))}


def run(*arguments, directory, **options):
    """Runs kelhost to its end; returns its status and its errors."""
    try:
        result = subprocess.run(command(*arguments), cwd=directory, env=environment(), stdin=subprocess.DEVNULL,
                                capture_output=True, timeout=HANG_SECONDS, **options)
    except subprocess.TimeoutExpired:
        raise Failure(f'kelhost {" ".join(map(str, arguments))} hangs') from None
    return result.returncode, result.stderr.decode(errors='replace')


def copy_undisturbed(source, output, directory):
    """Makes a copy of exact 16-bit values; returns its bytes and its duration in seconds."""
    begin = time.monotonic()
    status, errors = run('copy', '--encoding', 'int16', source, output, directory=directory)
    duration = time.monotonic() - begin
    if status != 0:
        raise SystemExit(errors)
    content = (directory / output).read_bytes()
    (directory / output).unlink()
    return content, duration


def start(*arguments, directory):
    return subprocess.Popen(command(*arguments), cwd=directory, env=environment(), stdin=subprocess.DEVNULL,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, start_new_session=True)


def finish(process):
    """Waits for a started kelhost; returns its status and its errors."""
    try:
        errors = process.communicate(timeout=HANG_SECONDS)[1]
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, 9)
        process.communicate()
        raise Failure('kelhost hangs') from None
    return process.returncode, errors.decode(errors='replace')


def names(directory):
    return sorted(entry.name for entry in pathlib.Path(directory).iterdir())


def adopt_orphans():
    """Processes that outlive their parent become children of this one."""
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), 'prctl')


def require_no_orphans():
    """Workers end by themselves when the host is gone."""
    end = time.monotonic() + HANG_SECONDS
    while time.monotonic() < end:
        try:
            if os.waitpid(-1, os.WNOHANG)[0] == 0:
                time.sleep(0.01)
        except ChildProcessError:
            return
    raise Failure('a worker goes on without the host')
