#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The INDI driver with simulated cameras and a real indiserver, in a network namespace of its own.

usage: driver_test.py DIRECTORY-OF-PROGRAMS [unittest arguments]
"""
import os
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from indi_client import Client, Fits, Server

BIN = ""

# A camera of each family, and what clients shall see of it.
COOLER = {"CCD_COOLER", "CCD_COOLER_POWER", "CCD_TEMP_RAMP", "CCD_TEMPERATURE"}
GUIDE = {"TELESCOPE_TIMED_GUIDE_NS", "TELESCOPE_TIMED_GUIDE_WE"}
OPTIONAL = COOLER | GUIDE | {"CCD_CFA", "CCD_GAIN", "CCD_OFFSET", "FILTER_SLOT", "FILTER_NAME", "READOUT_QUALITY",
                             "CCD_SENSORS", "CCD_FAST_TOGGLE", "CCD_BINNING"}
FAMILIES = {
    "K23": {"CCD_BINNING", "READOUT_QUALITY"} | COOLER | GUIDE,
    "K20": {"CCD_BINNING", "CCD_GAIN", "CCD_OFFSET", "FILTER_SLOT", "FILTER_NAME", "READOUT_QUALITY", "CCD_SENSORS"}
           | COOLER | GUIDE,
    "K31": {"CCD_BINNING", "READOUT_QUALITY"} | COOLER,
    "K03": {"CCD_BINNING", "CCD_CFA"} | GUIDE,
    "XRC": {"CCD_BINNING", "CCD_TEMPERATURE"},
}
INTERFACES = {"K23": "6", "K20": "22", "K31": "2", "K03": "6", "XRC": "2"}


def ramp(x, y):
    """What the ramp scene shows at a pixel of the sensor."""
    return (y * 256 + x) & 0xFFFF


class Evening(unittest.TestCase):
    """All families in one process, each with a client of its own at the same time."""

    @classmethod
    def setUpClass(cls):
        cls.server = Server(BIN, *FAMILIES, options=["--scene", "ramp"])
        cls.failures = []

    @classmethod
    def tearDownClass(cls):
        text = cls.server.stop()
        assert "Sanitizer" not in text and "runtime error" not in text, text

    def test_every_family(self):
        threads = [threading.Thread(target=self.evening, args=(model,)) for model in FAMILIES]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertFalse(self.failures, "\n".join(self.failures))

    def evening(self, model):
        client = None
        try:
            client = self.server.client()
            self.spend(client, model, "Vorn " + model)
        except Exception as error:  # pylint: disable=broad-except
            self.failures.append(f"{model}: {error!r}\n   messages: {client.messages[-4:] if client else None}")
        finally:
            if client:
                client.close()

    def spend(self, client, model, device):
        client.connect(device)
        shown = {name for (owner, name) in client.properties if owner == device}
        self.assertEqual(shown & OPTIONAL, FAMILIES[model])
        self.assertEqual(client.value(device, "DRIVER_INFO", "DRIVER_INTERFACE"), INTERFACES[model])
        self.assertNotEqual(client.value(device, "CAMERA_INFO", "SERIAL_NUMBER"), "")
        width = int(client.number(device, "CCD_INFO", "CCD_MAX_X"))
        height = int(client.number(device, "CCD_INFO", "CCD_MAX_Y"))

        if "CCD_COOLER" in FAMILIES[model]:
            client.set(device, "CCD_TEMPERATURE", CCD_TEMPERATURE_VALUE=11)
            client.wait_answer(device, "CCD_TEMPERATURE", "Busy")
            client.wait(lambda: client.value(device, "CCD_COOLER", "COOLER_ON") == "On", "cooler on")
        if "CCD_GAIN" in FAMILIES[model]:
            client.set(device, "CCD_GAIN", GAIN=17)
            client.wait(lambda: client.state(device, "CCD_GAIN") == "Ok", "gain")
            self.assertEqual(client.number(device, "CCD_GAIN", "GAIN"), 17)
        if "FILTER_SLOT" in FAMILIES[model]:
            self.assertEqual(client.limits[(device, "FILTER_SLOT")]["FILTER_SLOT_VALUE"], (1, 5))
            client.set(device, "FILTER_NAME", FILTER_SLOT_NAME_3="H alpha")
            client.set(device, "FILTER_SLOT", FILTER_SLOT_VALUE=3)
            client.wait_answer(device, "FILTER_SLOT", "Busy")

        self.take_regions(client, model, device, width, height)
        if GUIDE <= FAMILIES[model]:
            self.pulse(client, device)
        client.set(device, "CCD_FRAME_TYPE", FRAME_DARK="On")
        dark = client.expose(device, 0.05)
        self.assertEqual(dark.keys["IMAGETYP"], "Dark Frame")
        if "CCD_COOLER" in FAMILIES[model]:
            client.wait(lambda: client.state(device, "CCD_TEMPERATURE") == "Ok", "settled", 120)
            self.assertLessEqual(abs(client.number(device, "CCD_TEMPERATURE", "CCD_TEMPERATURE_VALUE") - 11), 0.5)
            told = {event[3]["CCD_TEMPERATURE_VALUE"] for event in client.history
                    if event[:3] == (device, "CCD_TEMPERATURE", "Busy")}
            self.assertGreater(len(told), 1, "temperatures on the way")
            client.set(device, "CCD_COOLER", COOLER_OFF="On")
            client.wait(lambda: client.value(device, "CCD_COOLER", "COOLER_OFF") == "On", "warm-up")
            client.wait_state(device, "CCD_TEMPERATURE", "Idle")
        client.disconnect(device)
        self.assertEqual({name for (owner, name) in client.properties if owner == device} & OPTIONAL, set())

    def take_regions(self, client, model, device, width, height):
        """A whole picture, a region and a binned one: each pixel where it belongs, header as for vornctl."""
        picture = client.expose(device, 0.05)
        self.assertEqual((picture.width, picture.height), (width, height))
        if model != "XRC":  # it sends 8 bits a pixel
            self.assertEqual([picture.pixel(1, 0), picture.pixel(width - 1, height - 1)],
                             [ramp(1, 0), ramp(width - 1, height - 1)])
        if "FILTER_SLOT" in FAMILIES[model]:
            self.assertEqual(picture.keys["FILTER"], "H alpha", "an exposure waits for the wheel")
            self.assertEqual(picture.keys["GAIN"], "17")
        client.set(device, "CCD_FRAME", X=33, Y=21, WIDTH=101, HEIGHT=51)
        client.wait_state(device, "CCD_FRAME", "Ok")
        region = client.expose(device, 0.05)
        self.assertEqual((region.width, region.height), (101, 51))
        if model != "XRC":
            self.assertEqual([region.pixel(0, 0), region.pixel(100, 50)], [ramp(33, 21), ramp(133, 71)])
        if "CCD_CFA" in FAMILIES[model]:
            offsets = [client.value(device, "CCD_CFA", "CFA_OFFSET_" + axis) for axis in "XY"]
            self.assertEqual([region.keys["XBAYROFF"], region.keys["YBAYROFF"]], offsets)
            self.assertEqual([str((int(picture.keys[key]) + 1) % 2) for key in ("XBAYROFF", "YBAYROFF")], offsets)
        self.compare_with_vornctl(client, model, region)
        client.set(device, "CCD_BINNING", HOR_BIN=2, VER_BIN=2)
        client.wait_state(device, "CCD_BINNING", "Ok")
        binned = client.expose(device, 0.05)
        self.assertEqual((binned.width, binned.height, binned.keys["XBINNING"]), (50, 25, "2"))
        self.assertNotIn("BAYERPAT", binned.keys)

    def compare_with_vornctl(self, client, model, picture):
        gain = int(picture.keys.get("GAIN", 0))
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "a.fits")
            command = [f"{BIN}/vornsim", "run", "--scene", "ramp", "--seed", str(list(FAMILIES).index(model)),
                       "--camera", model, "--", f"{BIN}/vornctl", "expose", "-t", "0.05", "--roi", "33,21,101,51",
                       "-o", path, "-q"]
            # The library keeps the list of devices to the end of the process, by contract.
            quiet = dict(os.environ, ASAN_OPTIONS="detect_leaks=0")
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL, env=quiet)
            with open(path, "rb") as file:
                other = Fits(file.read())
        self.assertEqual(picture.pixels, other.pixels)
        passing = {"DATE", "DATE-OBS", "DATE-AVG", "DATE-END", "CHECKSUM", "DATASUM", "SWCREATE", "CCD-TEMP",
                   "SET-TEMP", "CAMSER", "FILTER", "GAIN"}
        ours = {key: value for key, value in picture.keys.items() if key not in passing}
        for key, value in other.keys.items():
            if key not in passing:
                self.assertEqual(ours.get(key), value, key)
        names = [key for key, value in picture.cards if key not in ("", "COMMENT", "HISTORY")]
        self.assertEqual(len(names), len(set(names)), "a keyword twice")
        self.assertTrue(gain == 0 or model == "K20")
        self.assertTrue({"TELESCOP", "OBJECT", "OBSERVER"}.isdisjoint(names), "what nobody said")

    def pulse(self, client, device):
        """A pulse is Busy for its time, its value is gone afterwards, and refused ones change nothing."""
        name = "TELESCOPE_TIMED_GUIDE_NS"
        since = len(client.history)
        client.set(device, name, TIMED_GUIDE_N=300, TIMED_GUIDE_S=0)
        client.wait(lambda: [event for event in client.history[since:] if event[:3] == (device, name, "Idle")], "pulse over")
        self.assertEqual(client.number(device, name, "TIMED_GUIDE_N"), 0)
        for wrong in ({"TIMED_GUIDE_N": 60001}, {"TIMED_GUIDE_N": "nan"}, {"TIMED_GUIDE_S": -1},
                      {"TIMED_GUIDE_N": 100, "TIMED_GUIDE_S": 100}):
            since = len(client.history)
            client.set(device, name, **wrong)
            client.wait(lambda: [event for event in client.history[since:] if event[:3] == (device, name, "Alert")], "refused")
            self.assertEqual([client.number(device, name, "TIMED_GUIDE_" + letter) for letter in "NS"], [0, 0])


class OneCamera(unittest.TestCase):
    """What needs no particular family, with one small camera and a server for all tests."""

    device = "Vorn K23"

    @classmethod
    def setUpClass(cls):
        cls.server = Server(BIN, "K23", options=["--scene", "ramp"])

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()

    def setUp(self):
        self.client = self.server.client()
        self.client.connect(self.device)

    def tearDown(self):
        self.client.disconnect(self.device)
        self.client.close()

    def answer_within(self, seconds):
        """The event loop answers while a camera is busy."""
        since = len(self.client.history)
        start = time.monotonic()
        self.client.set(self.device, "DEBUG", DISABLE="On")
        self.client.wait(lambda: [event for event in self.client.history[since:] if event[1] == "DEBUG"], "answer")
        self.assertLess(time.monotonic() - start, seconds)

    def test_abort_is_idle_at_once_and_the_next_exposure_works(self):
        client, device = self.client, self.device
        for seconds in (0.4, 20):
            client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=seconds)
            client.wait_answer(device, "CCD_EXPOSURE", "Busy")
            pictures = len(client.pictures.get(device, []))
            client.set(device, "CCD_ABORT_EXPOSURE", ABORT="On")
            client.wait_state(device, "CCD_EXPOSURE", "Idle", limit=1)
            client.set(device, "CCD_FRAME", X=0, Y=0, WIDTH=100, HEIGHT=100)
            self.assertEqual(client.expose(device, 0.01).width, 100)
            self.assertEqual(len(client.pictures[device]), pictures + 1, "no picture of what was stopped")

    def test_a_new_exposure_replaces_one_that_runs(self):
        client, device = self.client, self.device
        client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=30)
        client.wait(lambda: client.state(device, "CCD_EXPOSURE") == "Busy", "first")
        self.assertEqual(client.expose(device, 0.02).keys["EXPTIME"], "0.020000")

    def test_an_exposure_counts_down_and_lasts_its_time(self):
        client, device = self.client, self.device
        since = len(client.history)
        picture = client.expose(device, 4.0)
        self.assertLess(abs(float(picture.keys["EXPTIME"]) - 4.0), 0.5)
        left = [float(event[3]["CCD_EXPOSURE_VALUE"]) for event in client.history[since:]
                if event[1:3] == ("CCD_EXPOSURE", "Busy")]
        self.assertGreaterEqual(len(left), 4)
        self.assertEqual(left, sorted(left, reverse=True))

    def test_impossible_requests_are_refused_and_change_nothing(self):
        client, device = self.client, self.device
        rows = [("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": "nan"}), ("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 1e9}),
                ("CCD_FRAME", {"X": 700, "Y": 0, "WIDTH": 100, "HEIGHT": 100}),
                ("CCD_FRAME", {"X": "nan", "Y": 0, "WIDTH": 100, "HEIGHT": 100}),
                ("CCD_BINNING", {"HOR_BIN": 9, "VER_BIN": 9}), ("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": "nan"}),
                ("CCD_TEMPERATURE", {"CCD_TEMPERATURE_VALUE": -90}), ("CCD_CAPTURE_FORMAT", {"INDI_MONO": "Off"}),
                ("CCD_TRANSFER_FORMAT", {"FORMAT_NATIVE": "On"}), ("UPLOAD_MODE", {"UPLOAD_LOCAL": "Off"}),
                ("CCD_FRAME_TYPE", {"FRAME_LIGHT": "Off"}), ("FITS_HEADER", {"FITS_OBJECT": "x" * 10000})]
        for name, values in rows:
            with self.subTest(name=name, values=str(values)[:60]):
                before = client.properties[(device, name)][1]
                since, messages = len(client.history), len(client.messages)
                client.set(device, name, **values)
                client.wait(lambda: [event for event in client.history[since:] if event[1:3] == (name, "Alert")], name)
                client.wait(lambda: len(client.messages) > messages, "message")
                self.assertEqual(client.properties[(device, name)][1], before)
        client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=20)
        client.wait_state(device, "CCD_EXPOSURE", "Busy")
        client.set(device, "CCD_BINNING", HOR_BIN=2, VER_BIN=2)
        client.wait_message("not while an exposure is under way")
        client.set(device, "CCD_ABORT_EXPOSURE", ABORT="On")
        client.wait_state(device, "CCD_EXPOSURE", "Idle")
        self.assertEqual(client.number(device, "CCD_BINNING", "HOR_BIN"), 1)

    def test_pictures_are_stored_where_the_user_wants(self):
        client, device = self.client, self.device
        folder = os.path.join(self.server.home, "pictures")
        client.set(device, "UPLOAD_SETTINGS", UPLOAD_DIR=folder, UPLOAD_PREFIX="night_XXX")
        client.set(device, "UPLOAD_MODE", UPLOAD_LOCAL="On")
        client.wait_state(device, "UPLOAD_MODE", "Ok")
        client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=0.01)
        client.wait(lambda: client.value(device, "CCD_FILE_PATH", "FILE_PATH"), "file")
        with open(os.path.join(folder, "night_001.fits"), "rb") as file:
            self.assertEqual(Fits(file.read()).keys["INSTRUME"], device)
        client.set(device, "UPLOAD_MODE", UPLOAD_CLIENT="On")

    def test_indi_tools_and_a_client_that_vanishes_in_the_middle_of_a_picture(self):
        client, device = self.client, self.device
        other = Client(self.server.port)
        other.send(f'<enableBLOB device="{device}">Also</enableBLOB>')
        subprocess.run(["indi_setprop", "-p", str(self.server.port), f"{device}.CCD_EXPOSURE.CCD_EXPOSURE_VALUE=0.3"],
                       check=True)
        busy = ("CCD_EXPOSURE", "Busy")
        client.wait(lambda: busy in [event[1:3] for event in client.history], "exposure")
        other.close()
        client.wait_state(device, "CCD_EXPOSURE", "Ok")
        out = subprocess.run(["indi_getprop", "-1", "-p", str(self.server.port), f"{device}.CCD_EXPOSURE._STATE"],
                             check=True, capture_output=True, text=True).stdout
        self.assertEqual(out.strip(), "Ok")
        self.answer_within(2)

    def test_two_hundred_exposures_leave_memory_and_descriptors_alone(self):
        client, device = self.client, self.device
        client.set(device, "CCD_FRAME", X=0, Y=0, WIDTH=64, HEIGHT=64)
        client.wait_state(device, "CCD_FRAME", "Ok")
        pid = self.server.driver_pid()

        def figures():
            with open(f"/proc/{pid}/statm", encoding="ascii") as file:
                return int(file.read().split()[1]) * 4096, len(os.listdir(f"/proc/{pid}/fd"))

        sanitized = "asan" in BIN or "tsan" in BIN
        count = 40 if sanitized else 200
        for _ in range(count // 4):
            client.expose(device, 0.001)
        memory, descriptors = figures()
        for _ in range(count):
            client.expose(device, 0.001)
        self.assertLess(figures()[0] - memory, (64 if sanitized else 2) << 20)
        self.assertLessEqual(figures()[1], descriptors + 1)


if __name__ == "__main__":
    BIN = os.path.abspath(sys.argv.pop(1))
    signal.alarm(600)
    unittest.main(verbosity=2)
