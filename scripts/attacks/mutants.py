"""Runs kelhost on damaged files of every format.

Mutants have some bytes changed, removed or repeated. Damaged files are cut, or have a part that is missing,
filled with zeros, or from elsewhere, as after a crash of the system. Each run ends with status 0 or 1 in time,
does not crash a worker, needs little memory, and leaves either a complete output or none.
"""

import os
import pathlib
import re
import shutil
import signal
import struct
import subprocess

import attack

SEEDS = attack.ROOT / 'build/release/fuzz/seeds/Source'
SEED_PREFIX = 20  # what precedes the file in an input of the fuzz target
ENCODERS = {'take.flac': ['flac'], 'take.ogg': ['libvorbis'], 'take.opus': ['libopus'], 'take.mp3': ['libmp3lame'],
            'take.au': ['pcm_s16be'], 'take.caf': ['pcm_s24be'], 'take.w64': ['pcm_s16le'], 'take.aiff': ['pcm_s16be'],
            'take.wav': ['pcm_f32le'], 'take.rf64.wav': ['pcm_s24le', '-rf64', 'always']}
MEMORY_KIB = int(os.environ.get('KEL_SOAK_MEMORY_MIB', '1024')) * 1024
MAX_OUTPUT_BYTES = 1 << 30
INTERESTING = (0, 1, 0x7F, 0x80, 0xFF)
NUMBERS = tuple(struct.pack('<I', number) for number in (0, 1, 2, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF4, 0xFFFFFFFF))


def make_originals(directory):
    """Returns real files: a small one of each container and encoding, and longer ones of the usual kinds."""
    files = {path.name: path.read_bytes()[SEED_PREFIX:] for path in sorted(SEEDS.iterdir())}
    attack.write_wave(directory / 'take', 20000, 4)
    for name, (encoder, *options) in ENCODERS.items():
        subprocess.run(['ffmpeg', '-v', 'error', '-y', '-i', directory / 'take', '-c:a', encoder, *options,
                        directory / name], check=True)
        files[name] = (directory / name).read_bytes()
        (directory / name).unlink()
    (directory / 'take').unlink()
    return files


def mutate(data, choose):
    """Changes a few places; most of them at the beginning, where the header is."""
    data = bytearray(data)
    for _ in range(choose.choice([1, 1, 2, 4, 16])):
        at = choose.randrange(min(len(data), choose.choice([64, 512, len(data)])) or 1)
        kind = choose.randrange(6)
        if kind == 0:
            data[at:at + 1] = bytes([choose.randrange(256)])
        elif kind == 1:
            data[at:at + 1] = bytes([choose.choice(INTERESTING)])
        elif kind == 2:
            data[at:at + 4] = choose.choice(NUMBERS)
        elif kind == 3:
            data[at:at + 4] = choose.choice(NUMBERS)[::-1]
        elif kind == 4:
            del data[at:at + choose.choice([1, 2, 4, 100])]
        else:
            data[at:at] = data[at:at + choose.choice([1, 8, 100])]
    return bytes(data)


def damage(data, choose):
    begin = choose.randrange(len(data) + 1)
    end = min(len(data), begin + choose.choice([1, 16, 512, 4096]))
    kind = choose.randrange(4)
    if kind == 0:
        return data[:begin]
    if kind == 1:
        return data[:begin] + data[end:]
    if kind == 2:
        return data[:begin] + bytes(end - begin) + data[end:]
    other = choose.randrange(len(data) + 1)
    return data[:begin] + data[other:other + end - begin] + data[end:]


def is_complete(path):
    """Whether the sizes in a WAVE, RF64 or AIFF file are those of the file."""
    data = path.read_bytes()
    size = struct.unpack('>I' if data[:4] == b'FORM' else '<I', data[4:8])[0]
    if data[:4] == b'RF64':
        return data[12:16] == b'ds64' and struct.unpack('<Q', data[20:28])[0] + 8 == len(data)
    return data[:4] in (b'RIFF', b'FORM') and size + 8 == len(data)


def run_limited(arguments, directory):
    """Runs kelhost; returns its status, its errors, and the memory of its largest process in KiB."""
    with open(directory / 'errors', 'wb') as errors:
        process = subprocess.Popen(attack.command(*arguments), cwd=directory, env=attack.environment(),
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors,
                                   start_new_session=True)
    signal.setitimer(signal.ITIMER_REAL, attack.HANG_SECONDS)
    try:
        _, status, usage = os.wait4(process.pid, 0)
    except TimeoutError:
        os.killpg(process.pid, signal.SIGKILL)
        os.wait4(process.pid, 0)
        raise attack.Failure('hangs') from None
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        process.returncode = 0
    text = (directory / 'errors').read_text(errors='replace')
    (directory / 'errors').unlink()
    return os.waitstatus_to_exitcode(status), text, usage.ru_maxrss


def on_alarm(_number, _frame):
    raise TimeoutError


def main():
    run = attack.Attack('mutants', 3000, __doc__.splitlines()[0])
    damaged = int(os.environ.get('KEL_SOAK_DAMAGED', '1380'))
    signal.signal(signal.SIGALRM, on_alarm)
    with run.directory() as directory:
        originals = make_originals(directory)
        print(f'mutants: {len(originals)} files to start from')
        keep = run.place / 'failed'

        def attempt_with(change):
            def attempt(number):
                name = run.random.choice(sorted(originals))
                file = directory / ('file' + pathlib.Path(name).suffix)
                file.write_bytes(change(originals[name], run.random))
                output = run.random.choice(['out.wav', 'out.aiff', 'out.rf64'])
                arguments = run.random.choice([
                    ['copy', file.name, output], ['copy', '--allow-truncated', file.name, output],
                    ['info', '--measure', file.name], ['plot', file.name, '-o', 'out.svg'],
                    ['run', 'kel.LibsndfileSource:WAVE', f'FilePath={file.name}', '!', 'kel.LibsndfileSink:WAVE',
                     'FilePath=out.wav']])
                try:
                    return judge(file, arguments)
                except attack.Failure as failure:
                    keep.mkdir(exist_ok=True)
                    kept = keep / f'{change.__name__}-{run.seed}-{number}{file.suffix}'
                    shutil.copy(file, kept)
                    raise attack.Failure(f'{change.__name__} of {name}, kept as {kept}: {failure}') from None
                finally:
                    for entry in directory.iterdir():
                        entry.unlink()
            return attempt

        def judge(file, arguments):
            status, errors, memory = run_limited(['--open-timeout', '20', *arguments], directory)
            what = f'kelhost {" ".join(arguments)}: status {status}, {memory // 1024} MiB, {errors.strip()[-300:]!r}'
            attack.require(status in (0, 1), f'{what}: an unexpected status')
            attack.require('the worker process ended' not in errors, f'{what}: a worker crashed')
            attack.require(memory <= MEMORY_KIB, f'{what}: too much memory')
            left = [name for name in attack.names(directory) if name != file.name]
            if status == 0:
                attack.require(len(left) == ('info' not in arguments), f'{what}: leaves {left}')
                for name in left:
                    attack.require(name == 'out.svg' or is_complete(directory / name), f'{what}: not complete')
                return 'succeeded'
            attack.require(left == [], f'{what}: leaves {left}')
            attack.require(re.search('^kelhost: ', errors, re.M), f'{what}: no error')
            return 'ended by the time limit' if 'cannot open the file within' in errors else 'refused'

        run.run(attempt_with(mutate))
        run.run(attempt_with(damage), damaged)
    run.end(run.count + damaged)


if __name__ == '__main__':
    main()
