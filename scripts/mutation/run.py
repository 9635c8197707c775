#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Mutation score: changes the sources of the library and of capture in small ways and asks whether a test notices.

A sample of all possible mutants goes into a copy of the sources, which is built once. Each test program then runs once
to see which mutants it meets, and after that once for each mutant that it meets, until one program fails.
"""
import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time

import mutants

ROOT = pathlib.Path(__file__).resolve().parents[2]
HERE = pathlib.Path(__file__).resolve().parent
TABLES = ('model_table.cpp', 'waveforms.cpp', 'waveforms.h', 'commands.h', 'iidc_registers.h')
GTEST_ARGUMENTS = ['--gtest_fail_fast', '--gtest_brief=1']
ARGUMENTS = {'fault_sweep': ['--stride', '29'], 'soak': ['--nights', '2']}  # as with the sanitizers in test.sh
FILE_BYTES = 64 << 20
SANITIZER = 'detect_leaks=1:hard_rss_limit_mb=6000:allocator_may_return_null=1'


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--sample', type=int, default=400, help='number of mutants (default: 400)')
    parser.add_argument('--seed', type=int, default=1, help='of the sample (default: 1)')
    parser.add_argument('--only', default='', help='only files whose path holds this text')
    parser.add_argument('--numbers', type=int, nargs='*', help='only these mutants of the sample')
    parser.add_argument('--jobs', type=int, default=os.cpu_count(), help='test programs at a time, and of the build')
    parser.add_argument('--work', default=str(ROOT / 'build' / 'mutation'), help='folder of the copy and its build')
    parser.add_argument('--skip', default='scene|simulator_tests|usb|redir|firmware|thread',
                        help='test programs to leave out, a regular expression')
    return parser.parse_args()


def sample(options):
    """Picks the mutants, numbered from 1 in the order of files and lines."""
    clang = subprocess.run(['clang-14', '-print-resource-dir'], capture_output=True, text=True, check=True).stdout
    arguments = ['-std=c++20', f'-I{ROOT}', f'-I{ROOT}/include', f'-I{ROOT}/src', '-I/usr/include/libusb-1.0',
                 f'-isystem{clang.strip()}/include']
    paths = [str(path) for path in sorted([*ROOT.glob('src/**/*.[ch]*'), *ROOT.glob('capture/**/*.[ch]*')])
             if path.suffix in ('.h', '.cpp') and path.name not in TABLES and options.only in str(path)]
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        found = sum(pool.map(mutants.find, paths, [arguments] * len(paths)), [])
    chosen = random.Random(options.seed).sample(found, min(options.sample, len(found)))
    chosen.sort(key=lambda m: (m.path, m.start, m.end))
    for number, mutant in enumerate(chosen, 1):
        mutant.number = number
    print(f'{len(chosen)} mutants out of {len(found)}', flush=True)
    return chosen


def build(options, chosen):
    """Writes and builds the sources with the mutants. @return the mutants that compile."""
    work = pathlib.Path(options.work)
    copy = work / 'source'
    shutil.rmtree(copy, ignore_errors=True)
    shutil.copytree(ROOT, copy, ignore=shutil.ignore_patterns('.git', 'build', 'mutation'))
    flags = ('-O1 -w -fpermissive -Wno-narrowing -Wno-error '
             '-fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all')
    subprocess.run(['cmake', '-G', 'Ninja', '-S', copy, '-B', work / 'build', '-DCMAKE_BUILD_TYPE=None',
                    f'-DCMAKE_CXX_FLAGS={flags}'], check=True, stdout=subprocess.DEVNULL)
    listed = subprocess.run(['ninja', '-C', work / 'build', '-t', 'targets', 'all'], capture_output=True, text=True,
                            check=True).stdout
    programs = [p for p in re.findall(r'^(bin/(?:\w+_test|fault_sweep|soak)): ', listed, re.MULTILINE)
                if not re.search(options.skip, p)]
    for folder in ('src', 'capture'):  # what an earlier run has built of them holds other mutants
        for path in (copy / folder).rglob('*.*'):
            path.touch()
    while True:
        for path in {m.path for m in chosen}:
            text = f'#include "{HERE}/mutant.h"\n#line 1\n'.encode()
            text += mutants.render(pathlib.Path(path).read_bytes(), [m for m in chosen if m.path == path])
            target = copy / pathlib.Path(path).relative_to(ROOT)
            if target.read_bytes() != text:
                target.write_bytes(text)
        result = subprocess.run(['ninja', '-k0', f'-j{options.jobs}', '-C', work / 'build', *programs],
                                capture_output=True, text=True, check=False)
        if result.returncode == 0:
            return chosen
        wrong = {(str(ROOT / path), int(line)) for path, line in
                 re.findall(rf'^{copy}/([^:\n]*):(\d+):\d+: error', result.stdout, re.MULTILINE)}
        good = [m for m in chosen if (m.path, m.line) not in wrong]
        if len(good) == len(chosen):
            sys.exit('The build failed:\n' + result.stdout[-3000:])
        print(f'{len(chosen) - len(good)} mutants do not compile', flush=True)
        chosen = good


def run_program(program, timeout, **variables):
    """@return whether the program's tests pass."""
    def limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_BYTES, FILE_BYTES))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, 'TMPDIR': folder, 'TEST_TMPDIR': folder, 'ASAN_OPTIONS': SANITIZER, **variables}
        with subprocess.Popen([program, *ARGUMENTS.get(program.name, GTEST_ARGUMENTS)], cwd=folder, env=environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=limit, start_new_session=True) as process:
            try:
                return process.wait(timeout) == 0
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, 9)
                return False


def measure(options):
    """Runs each test program without a mutant. @return (program, seconds, numbers of the mutants it meets)."""
    programs = []
    for program in sorted(pathlib.Path(options.work).glob('build/bin/*')):
        if re.search(options.skip, program.name) or not (program.name in ARGUMENTS or program.match('*_test')):
            continue
        log = pathlib.Path(options.work) / 'met'
        log.unlink(missing_ok=True)
        begin = time.monotonic()
        passed = run_program(program, 300, VORNCCD_MUTANT_LOG=str(log))
        seconds = time.monotonic() - begin
        met = set(map(int, log.read_text().split())) if log.exists() else set()
        print(f'{program.name}: {seconds:.1f} s, meets {len(met)} mutants' + ('' if passed else ', FAILS'), flush=True)
        if passed and met:
            programs.append((program, seconds, met))
    return sorted(programs, key=lambda p: p[1])


def judge(mutant, programs):
    """@return the name of the program that noticed, or an empty text."""
    for program, seconds, met in programs:
        if mutant.number in met and not run_program(program, 5 + 4 * seconds, VORNCCD_MUTANT=str(mutant.number)):
            return program.name
    return ''


def main():
    options = parse_arguments()
    chosen = build(options, sample(options))
    programs = measure(options)
    if options.numbers:
        chosen = [m for m in chosen if m.number in options.numbers]
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for mutant, killer in zip(chosen, pool.map(lambda m: judge(m, programs), chosen)):
            place = f'{pathlib.Path(mutant.path).relative_to(ROOT)}:{mutant.line}'
            met = any(mutant.number in p[2] for p in programs)
            verdict = f'killed by {killer}' if killer else 'SURVIVED' if met else 'SURVIVED, not met'
            print(f'{mutant.number:4} {place}: {mutant.change}: {verdict}', flush=True)
            if not killer:
                survivors.append(mutant)
    killed = len(chosen) - len(survivors)
    print(f'{killed} of {len(chosen)} mutants killed, {100 * killed / max(len(chosen), 1):.1f} %; '
          f'{len(survivors)} survived')


if __name__ == '__main__':
    main()
