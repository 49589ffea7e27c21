"""Has several copies race for one output.

Without --force exactly one wins, and the others leave it as it is. With --force the last one wins. The output
is always one of the complete copies.
"""

import re
import threading

import attack

RUNNERS = 5
# Another copy won before this one began, or while it was made.
LOSS = 'kelhost: {}: (exists already; .*|.*File exists)\n'
OUTPUTS = ('out.wav', 'out.aiff', 'out.rf64')


def main():
    run = attack.Attack('races', 80, __doc__.splitlines()[0])
    with run.directory() as directory:
        inputs = [f'in{runner}.wav' for runner in range(RUNNERS)]
        for runner, file in enumerate(inputs):
            attack.write_wave(directory / file, 20000 + 3000 * runner, 3 + runner)
        whole = {output: [attack.copy_undisturbed(file, output, directory)[0] for file in inputs]
                 for output in OUTPUTS}

        def attempt(_number):
            output, forced = run.random.choice(OUTPUTS), run.random.random() < 0.5
            options = ['--force'] if forced else []
            results = [None] * RUNNERS
            barrier = threading.Barrier(RUNNERS)

            def copy(runner):
                barrier.wait()
                process = attack.start('copy', '--encoding', 'int16', *options, inputs[runner], output,
                                       directory=directory)
                try:
                    results[runner] = attack.finish(process)
                except attack.Failure as failure:
                    results[runner] = (None, str(failure))

            threads = [threading.Thread(target=copy, args=(runner,)) for runner in range(RUNNERS)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            path = directory / output
            content = path.read_bytes() if path.exists() else None
            others = [name for name in attack.names(directory) if name not in inputs and name != output]
            path.unlink(missing_ok=True)
            what = f'{output} {" ".join(options)}, results {results}'
            attack.require(others == [], f'{what}: leave {others}')
            winners = [runner for runner, result in enumerate(results) if result[0] == 0]
            attack.require(winners, f'{what}: no program succeeds')
            attack.require(content in [whole[output][runner] for runner in winners],
                           f'{what}: the output is not that of a winner')
            if forced:
                attack.require(len(winners) == RUNNERS, f'{what}: some do not replace')
                return 'replaced'
            attack.require(len(winners) == 1, f'{what}: not exactly one wins')
            for runner, (status, errors) in enumerate(results):
                attack.require(runner in winners or status == 1 and re.fullmatch(LOSS.format(output), errors),
                               f'{what}: an unexpected error')
            return 'won by one'

        run.run(attempt)
    run.end()


if __name__ == '__main__':
    main()
