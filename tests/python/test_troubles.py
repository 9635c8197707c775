# SPDX-License-Identifier: MIT
"""What needs a process of its own: each case runs a program below `vornsim run`."""

from __future__ import annotations

import os
import re
import subprocess
import sys

RUN = os.environ["VORNSIM_RUN"].split("|")  # vornsim, run
PYTHON = os.environ["VORNSIM_PYTHON"].split("|")  # the interpreter, with what a sanitizer needs


def program(text: str, *options: str, status: int = 0) -> subprocess.CompletedProcess[str]:
    whole = "import os, signal, sys, threading, time, vornccd\n" + text
    options = options if "--camera" in options or "--no-camera" in options else ("--camera", "K12", *options)
    ended = subprocess.run([*RUN, *options, "--", *PYTHON, "-c", whole], capture_output=True, text=True, timeout=120)
    assert ended.returncode == status, ended.stdout + ended.stderr
    return ended


def test_unplugging_is_told_and_survived() -> None:
    ended = program(
        """
camera = vornccd.open()
try:
    camera.expose(0.01)
except vornccd.Disconnected as error:
    assert isinstance(error, ConnectionError) and error.advice, error
else:
    sys.exit("nothing was raised")
camera.close()
for attempt in range(100):
    try:
        with vornccd.open() as camera:
            print(camera.expose(0.01, roi=(0, 0, 8, 8)).data.shape)
        break
    except vornccd.NotFound:
        time.sleep(0.1)
""",
        "--fault",
        "exposure=1,endpoint=0x86,transfer=2,error=NO_DEVICE,replug=1",
    )
    assert ended.stdout == "(8, 8)\n"


def test_no_camera_and_no_answer() -> None:
    program(
        """
assert vornccd.list_cameras() == []
try:
    vornccd.open()
except vornccd.NotFound as error:
    assert isinstance(error, OSError) and "switched on" in str(error)
""",
        "--no-camera",
    )
    program(
        """
try:
    vornccd.open(12345678)
except vornccd.NotFound as error:
    assert "12345678" in str(error)
"""
    )
    program(
        """
try:
    vornccd.open(timeout=3)
except vornccd.Timeout as error:
    assert isinstance(error, TimeoutError) and error.advice
    sys.exit(7)
""",
        "--fault",
        "open=every,endpoint=in,error=TIMEOUT,times=ever",
        status=7,
    )


def test_a_camera_in_use_is_busy_when_searched_by_its_number() -> None:
    # One that the driver tries to open without end.
    program(
        """
camera = vornccd.open()
try:
    vornccd.open(camera.serial, timeout=1)
except vornccd.Busy as error:
    assert str(camera.serial) in str(error)
    sys.exit(7)
""",
        "--camera",
        "K31",
        status=7,
    )


def test_every_way_out_closes_the_camera() -> None:
    ends = {
        "camera.expose_async(20)": 0,  # aborted at once, as nobody keeps it
        "exposure = camera.expose_async(20); time.sleep(0.3)": 0,
        "threading.Thread(target=lambda: camera.expose(20), daemon=True).start(); time.sleep(0.3)": 0,
        "camera.__enter__(); sys.exit(3)": 3,
        "signal.signal(signal.SIGTERM, lambda *_: sys.exit(4)); signal.raise_signal(signal.SIGTERM)": 4,
        "threading.Timer(0.5, lambda: os.kill(os.getpid(), signal.SIGINT)).start(); camera.expose(20)": 130,
    }
    for action, status in ends.items():
        ended = program(f"camera = vornccd.open()\n{action}\n", "--log", "-", status=status)
        assert "interface 0 released" in ended.stderr, action
        assert "readout after" not in ended.stderr, action


def test_ctrl_c_is_an_abort_of_the_exposure_that_closes_the_shutter() -> None:
    ended = program(
        """
import ctypes
ctypes.c_bool.in_dll(ctypes.CDLL("libvornccd.so.1"), "VornDebug").value = True
timers = []
def interrupt(progress):
    if progress.phase == "exposing" and not timers:
        timers.append(threading.Timer(0.2, lambda: os.kill(os.getpid(), signal.SIGINT)))
        timers[0].start()
with vornccd.open() as camera:
    try:
        camera.expose(20, progress=interrupt)
    except KeyboardInterrupt:
        print("interrupted")
"""
    )
    called = re.findall(r"-> VornCameraImpl::(startExposure|abortExposure|readCCD|getImage|close)\b", ended.stderr)
    assert called == ["startExposure", "abortExposure", "close"]
    assert ended.stdout == "interrupted\n"


def test_a_child_process_leaves_its_parents_camera_alone() -> None:
    program(
        """
camera = vornccd.open()
child = os.fork()
if child == 0:
    try:
        camera.expose(0.01)
    except vornccd.Closed as error:
        assert "another process" in str(error)
        sys.exit(5)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 5
assert camera.expose(0.01, roi=(0, 0, 8, 8)).width == 8
"""
    )


def test_subinterpreters_are_refused() -> None:
    # Without the simulator: nothing may get as far as a camera.
    for before in ("", "import vornccd"):
        script = f"""
{before}
import _xxsubinterpreters as subinterpreters
try:
    subinterpreters.run_string(subinterpreters.create(), "import vornccd._core; vornccd._core.check_interpreter()")
except subinterpreters.RunFailedError as error:
    assert "main interpreter only" in str(error), error
else:
    raise SystemExit("it was not refused")
"""
        ended = subprocess.run([*PYTHON, "-c", script], capture_output=True, text=True, timeout=60)
        assert ended.returncode == 0, ended.stderr


if __name__ == "__main__":
    sys.exit("run this with pytest")
