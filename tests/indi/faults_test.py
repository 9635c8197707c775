#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What goes wrong in a night: cables, other programs, dead cameras, ends in the middle of an exposure.

usage: faults_test.py DIRECTORY-OF-PROGRAMS [unittest arguments]
"""
import os
import signal
import sys
import time
import unittest

from indi_client import Server

BIN = ""


class Faults(unittest.TestCase):

    def start(self, *cameras, **options):
        server = Server(BIN, *cameras, **options)
        self.addCleanup(server.stop)
        client = server.client()
        self.addCleanup(client.close)
        return server, client

    def test_unplugged_in_the_middle_of_a_picture_and_back(self):
        for model, endpoint in (("K23", "0x88"), ("K03", "0x86"), ("XRM", "0x81")):
            with self.subTest(model=model):
                device = "Vorn " + model
                _, client = self.start(model, options=[
                    "--fault", f"exposure=1,endpoint={endpoint},transfer=1,error=NO_DEVICE,replug=2"])
                client.connect(device)
                client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=0.01)
                client.wait_message("unplugged or switched off")
                client.wait_message("Check its power supply and cable")
                client.wait_state(device, "CONNECTION", "Alert")
                client.wait(lambda: not client.has(device, "CAMERA_INFO"), "properties gone")
                self.assertIn(("CCD_EXPOSURE", "Alert"), [event[1:3] for event in client.history])
                end = time.monotonic() + 30
                while client.state(device, "CONNECTION") != "Ok" and time.monotonic() < end:
                    client.set(device, "CONNECTION", CONNECT="On")
                    client.wait_answer(device, "CONNECTION", "Ok", "Alert")
                client.connect(device)
                self.assertGreater(client.expose(device, 0.01).width, 0)

    def test_unplugged_while_idle_is_noticed_by_polling(self):
        # Command replies come on this endpoint: a few during the exposure, then those of the polling.
        _, client = self.start("K23", options=["--fault", "exposure=1,endpoint=0x86,transfer=12,error=NO_DEVICE"])
        client.connect("Vorn K23")
        client.expose("Vorn K23", 0.01)
        client.wait_message("unplugged or switched off")
        client.wait_state("Vorn K23", "CONNECTION", "Alert")

    def test_reasons_not_to_open_are_said_as_vornctl_says_them(self):
        for fault, text, cure in (("open=1,error=BUSY", "used by another program", "Close the other program"),
                                  ("open=1,error=NO_MEM,times=ever", "no memory left", "usbfs_memory_mb")):
            with self.subTest(fault=fault):
                fault = fault.replace("open=1,error=BUSY", "open=every,error=BUSY")
                _, client = self.start("K23", options=["--fault", fault])
                client.wait(lambda: client.has("Vorn K23", "CONNECTION"), "device")
                client.set("Vorn K23", "CONNECTION", CONNECT="On")
                client.wait_message(text)
                client.wait_message(cure)
                client.wait_state("Vorn K23", "CONNECTION", "Alert")

    def test_a_camera_that_is_attached_later_appears(self):
        before = f"{BIN}/vornctl info >/dev/null 2>&1"
        _, client = self.start("K23", before=before, options=["--fault", "open=1,transfer=1,error=NO_DEVICE,replug=3"])
        client.connect("Vorn K23")

    def test_a_mute_camera_holds_nobody_up(self):
        server, client = self.start("K23", "XRM", options=["--fault", "exposure=1,endpoint=in,error=TIMEOUT,times=ever"])
        client.connect("Vorn K23")
        client.set("Vorn K23", "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=0.01)
        client.wait_answer("Vorn K23", "CCD_EXPOSURE", "Busy")
        client.connect("Vorn XRM")
        self.assertGreater(client.expose("Vorn XRM", 0.01).width, 0)
        client.disconnect("Vorn K23")
        self.assertLess(server.end(), 2.5)

    def test_the_end_of_the_server_ends_exposures_and_pulses(self):
        for how in ("server", "signal"):
            with self.subTest(how=how):
                server, client = self.start("K23")
                device = "Vorn K23"
                client.connect(device)
                client.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=100)
                client.set(device, "TELESCOPE_TIMED_GUIDE_NS", TIMED_GUIDE_N=50000)
                client.wait_answer(device, "CCD_EXPOSURE", "Busy")
                client.wait_answer(device, "TELESCOPE_TIMED_GUIDE_NS", "Busy")
                number = signal.SIGTERM if how == "server" else signal.SIGINT
                self.assertLess(server.end(how == "server", number), 2.5)
                self.assertNotIn("Sanitizer", server.driver_text())

    def test_equal_cameras_keep_their_names(self):
        server, client = self.start("K23", "K23", options=["--seed", "1"])
        for device in ("Vorn K23", "Vorn K23 2"):
            client.wait(lambda name=device: client.has(name, "CONNECTION"), "devices")
            client.set(device, "CONNECTION", CONNECT="On")
        numbers = {}
        for device in ("Vorn K23", "Vorn K23 2"):
            client.wait_state(device, "CONNECTION", "Ok")
            numbers[device] = client.wait(lambda name=device: client.value(name, "CAMERA_INFO", "SERIAL_NUMBER"), "id")
        self.assertEqual(len(set(numbers.values())), 2)
        with open(os.path.join(server.home, ".indi", "vorn_cameras"), encoding="ascii") as file:
            names = file.read()
        # The next night only the second one is there, at the place of the first.
        second = [device for device, number in numbers.items() if number == max(numbers.values(), key=int)]
        home = os.path.join(server.home, "next")
        os.makedirs(os.path.join(home, ".indi"))
        with open(os.path.join(home, ".indi", "vorn_cameras"), "w", encoding="ascii") as file:
            file.write(names)
        _, client = self.start("K23", home=home, options=["--serial", max(numbers.values(), key=int)])
        other = [device for device in numbers if device not in second][0]
        client.wait(lambda: client.has(other, "CONNECTION") or client.has(second[0], "CONNECTION"), "device")
        if client.has(other, "CONNECTION"):
            client.set(other, "CONNECTION", CONNECT="On")
            client.wait_message("is another camera, called " + second[0])
        client.connect(second[0])
        self.assertEqual(client.value(second[0], "CAMERA_INFO", "SERIAL_NUMBER"), numbers[second[0]])


if __name__ == "__main__":
    BIN = os.path.abspath(sys.argv.pop(1))
    signal.alarm(600)
    unittest.main(verbosity=2)
