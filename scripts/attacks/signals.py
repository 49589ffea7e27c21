"""Sends signals to copies at random moments.

Under the name of its output, a copy that a signal ends leaves nothing, or what was there before, or all of the
output. Only the killed host leaves a temporary file. No worker outlives its host.
"""

import os
import signal
import time

import attack

STATUSES = {signal.SIGINT: 130, signal.SIGTERM: 143, signal.SIGHUP: 129, signal.SIGKILL: -9}
FRAMES = 2000000
OUTPUTS = ('out.wav', 'out.aiff', 'out.rf64')
OPTIONS = ((), ('--verify',), ('--block', '480'))
BEFORE = b'an older file'


def main():
    run = attack.Attack('signals', 1600, __doc__.splitlines()[0])
    attack.adopt_orphans()
    with run.directory() as directory:
        attack.write_wave(directory / 'in.wav', FRAMES, 1)
        copies = {output: attack.copy_undisturbed('in.wav', output, directory) for output in OUTPUTS}
        whole = {output: content for output, (content, _) in copies.items()}
        duration = max(seconds for _, seconds in copies.values())

        def attempt(_number):
            output = run.random.choice(OUTPUTS)
            replaces = run.random.random() < 0.5
            if replaces:
                (directory / output).write_bytes(BEFORE)
            process = attack.start('copy', '--encoding', 'int16', '--force', *run.random.choice(OPTIONS), 'in.wav',
                                   output, directory=directory)
            time.sleep(run.random.uniform(0, 1.5 * duration))
            number = run.random.choice(list(STATUSES))
            # A terminal sends a signal to the whole group, kill to one process.
            if number != signal.SIGKILL and run.random.random() < 0.5:
                os.killpg(process.pid, number)
            else:
                process.send_signal(number)
            try:
                status, errors = attack.finish(process)
                attack.require_no_orphans()
                return judge(number, status, errors, output, replaces)
            finally:
                for name in attack.names(directory):
                    if name != 'in.wav':
                        remove(directory / name)

        def judge(number, status, errors, output, replaces):
            what = f'{signal.Signals(number).name}, {output}, status {status}, {errors.strip()!r}'
            path = directory / output
            content = path.read_bytes() if path.exists() else None
            others = [name for name in attack.names(directory) if name not in ('in.wav', output)]
            if number == signal.SIGKILL:
                attack.require(all(name.startswith(attack.TEMPORARY) for name in others), f'{what}: leaves {others}')
            else:
                attack.require(others == [], f'{what}: leaves {others}')
            if status == 0:
                attack.require(content == whole[output], f'{what}: the output is not complete')
                return 'completed'
            # Before the program has begun, a signal has its usual effect.
            attack.require(status in (STATUSES[number], -number), f'{what}: an unexpected status')
            # The signal came after the output got its name, and before the host learnt of it.
            if content == whole[output]:
                return 'completed and ended'
            attack.require(content == (BEFORE if replaces else None), f'{what}: the output is not what it was')
            return f'ended by {signal.Signals(number).name}'

        run.run(attempt)
    run.end()


def remove(path):
    if path.is_dir():
        for entry in path.iterdir():
            entry.unlink()
        path.rmdir()
    else:
        path.unlink()


if __name__ == '__main__':
    main()
