"""Copies onto small disks that are full, or become full during the copy.

A copy is exact, or it fails and leaves nothing. Needs the right to mount.
"""

import contextlib
import os
import subprocess
import threading
import time

import attack

FRAMES = 400000
OUTPUTS = ('out.wav', 'out.aiff', 'out.rf64')
OPTIONS = ((), ('--verify',), ('--block', '480'))
PAGE = 4096
# An ext4 file system needs some space for itself.
EXT4_BYTES = 1 << 20


@contextlib.contextmanager
def mounted(kind, size, directory):
    disk, image = directory / 'disk', directory / 'image'
    disk.mkdir(exist_ok=True)
    if kind == 'tmpfs':
        arguments = ['-t', 'tmpfs', '-o', f'size={max(size, PAGE)}', 'none']
    else:
        with open(image, 'wb') as file:
            file.truncate(size + EXT4_BYTES)
        subprocess.run(['mkfs.ext4', '-q', '-F', '-m', '0', '-O', '^has_journal', image], check=True,
                       capture_output=True)
        arguments = ['-o', 'loop', image]
    subprocess.run(['mount', *arguments, disk], check=True, capture_output=True)
    try:
        yield disk
    finally:
        subprocess.run(['umount', '--lazy', disk], check=True)
        image.unlink(missing_ok=True)


def usable_kinds(directory):
    kinds = []
    for kind in ('tmpfs', 'ext4'):
        try:
            with mounted(kind, 1 << 20, directory):
                kinds.append(kind)
        except (OSError, subprocess.CalledProcessError) as error:
            print(f'full-disks: no {kind} here: {error}')
    return kinds


def fill(path, delay, limit):
    """Fills a disk after a while, until less than a limit is left."""
    time.sleep(delay)
    with contextlib.suppress(OSError), open(path, 'wb', buffering=0) as file:
        while True:
            status = os.statvfs(path.parent)
            left = status.f_bavail * status.f_frsize - limit
            if left <= 0 or file.write(bytes(min(left, 1 << 20))) == 0:
                return


def main():
    run = attack.Attack('full-disks', 140, __doc__.splitlines()[0])
    with run.directory() as directory:
        attack.write_wave(directory / 'in.wav', FRAMES, 2)
        copies = {output: attack.copy_undisturbed('in.wav', output, directory) for output in OUTPUTS}
        whole = {output: content for output, (content, _) in copies.items()}
        duration = max(seconds for _, seconds in copies.values())
        kinds = usable_kinds(directory)
        if not kinds:
            print('full-disks: skipped, because nothing can be mounted; run it as root')
            return

        def attempt(_number):
            kind, output = run.random.choice(kinds), run.random.choice(OUTPUTS)
            options = run.random.choice(OPTIONS)
            needed = len(whole[output])
            fills = run.random.random() < 0.6
            near = needed + run.random.randrange(-3, 8) * PAGE
            size = 3 * needed if fills else run.random.choice([near, run.random.randrange(PAGE, 2 * needed)])
            with mounted(kind, size, directory) as disk:
                before = set(attack.names(disk))
                filler = threading.Thread(target=fill, args=(
                    disk / 'filler', run.random.uniform(0, duration), run.random.choice([0, needed // 2])))
                if fills:
                    filler.start()
                status, errors = attack.run('copy', '--encoding', 'int16', *options, 'in.wav', disk / output,
                                            directory=directory)
                if fills:
                    filler.join()
                what = f'{kind} of {size} bytes, {output} {" ".join(options)}, status {status}, {errors.strip()!r}'
                left = set(attack.names(disk)) - before - {'filler'}
                if status == 0:
                    attack.require(left == {output}, f'{what}: leaves {left}')
                    attack.require((disk / output).read_bytes() == whole[output], f'{what}: the output is not exact')
                    return 'exact'
                attack.require(status == 1, f'{what}: an unexpected status')
                attack.require(errors.startswith(f'kelhost: {disk / output}: '), f'{what}: does not name the output')
                attack.require(not left, f'{what}: leaves {left}')
                return 'refused' if not fills else 'failed and left nothing'

        run.run(attempt)
    run.end()


if __name__ == '__main__':
    main()
