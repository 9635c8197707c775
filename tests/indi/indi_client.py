# SPDX-License-Identifier: MIT
"""A small INDI client that keeps all it is told, and a server with simulated cameras for it."""
import base64
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
from xml.etree import ElementTree
from xml.sax.saxutils import quoteattr

LIMIT = 60.0


class Fits:
    """A FITS file: its keywords as texts, its 16-bit or 8-bit pixels."""

    def __init__(self, data):
        self.cards = []
        at = 0
        while True:
            card = data[at:at + 80].decode("ascii")
            at += 80
            if card.startswith("END"):
                break
            if card[8:10] == "= ":
                self.cards.append((card[:8].strip(), card[10:].split(" / ")[0].strip().strip("'").strip()))
        self.keys = dict(self.cards)
        start = (at + 2879) // 2880 * 2880
        self.width, self.height = int(self.keys["NAXIS1"]), int(self.keys["NAXIS2"])
        length = self.width * self.height * abs(int(self.keys["BITPIX"])) // 8
        self.pixels = data[start:start + length]

    def pixel(self, x, y):
        if self.keys["BITPIX"] == "8":
            return self.pixels[y * self.width + x]
        at = 2 * (y * self.width + x)
        return int.from_bytes(self.pixels[at:at + 2], "big") ^ 0x8000


class Client:
    """Keeps the newest state and values of every property, all messages and the newest picture of each device."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), 5)
        self.socket.settimeout(None)
        self.changed = threading.Condition()
        self.properties = {}  # (device, name): (state, {element: value})
        self.limits = {}  # (device, name): {element: (min, max)}
        self.history = []  # (device, name, state, values) of every set
        self.asked = {}  # (device, name): length of the history at the newest request
        self.messages = []
        self.pictures = {}  # device: [bytes]
        self.closed = False
        threading.Thread(target=self._read, daemon=True).start()
        self.send('<getProperties version="1.7"/>')

    def _read(self):
        parser = ElementTree.XMLPullParser(("start", "end"))
        parser.feed("<all>")
        depth = 0
        root = None
        while True:
            try:
                data = self.socket.recv(1 << 20)
            except OSError:
                data = b""
            if not data:
                with self.changed:
                    self.closed = True
                    self.changed.notify_all()
                return
            parser.feed(data)
            for event, element in parser.read_events():
                depth += 1 if event == "start" else -1
                if root is None:
                    root = element
                if event == "end" and depth == 1:
                    with self.changed:
                        self._take(element)
                        self.changed.notify_all()
                    root.clear()

    def _take(self, element):
        device, name = element.get("device"), element.get("name")
        if element.get("message"):
            self.messages.append(element.get("message"))
        if element.tag == "delProperty":
            for key in [key for key in self.properties if key[0] == device and name in (None, key[1])]:
                del self.properties[key]
        elif element.tag[:3] in ("def", "set"):
            state, values = self.properties.get((device, name), ("", {}))
            values = dict(values)
            for child in element:
                if child.tag == "oneBLOB":
                    self.pictures.setdefault(device, []).append(base64.b64decode(child.text))
                    continue
                values[child.get("name")] = (child.text or "").strip()
                if child.get("max") is not None and element.tag[:3] == "def":
                    self.limits.setdefault((device, name), {})[child.get("name")] = (
                        float(child.get("min")), float(child.get("max")))
            self.properties[(device, name)] = (element.get("state", state), values)
            if element.tag[:3] == "set":
                self.history.append((device, name, element.get("state", state), values))

    def send(self, text):
        self.socket.sendall(text.encode())

    def set(self, device, name, **values):
        """Sends new values; texts are switches when they are On or Off."""
        self.asked[(device, name)] = len(self.history)
        kind = "Number"
        if all(value in ("On", "Off") for value in values.values()):
            kind = "Switch"
        elif any(isinstance(value, str) and not value.replace("nan", "0").replace("inf", "0").lstrip("-").replace(
                ".", "", 1).isdigit() for value in values.values()):
            kind = "Text"
        ones = "".join(f"<one{kind} name={quoteattr(key)}>{value}</one{kind}>" for key, value in values.items())
        self.send(f"<new{kind}Vector device={quoteattr(device)} name={quoteattr(name)}>{ones}</new{kind}Vector>")

    def wait(self, condition, what, limit=LIMIT):
        """Waits until condition() is true. @return its value"""
        end = time.monotonic() + limit
        with self.changed:
            while True:
                value = condition()
                if value:
                    return value
                left = end - time.monotonic()
                if left <= 0 or self.closed:
                    raise AssertionError(f"{what}: not within {limit:g} s{' (server gone)' if self.closed else ''}; "
                                         f"messages: {self.messages[-5:]}; newest: {[event[1:3] for event in self.history[-8:]]}")
                self.changed.wait(left)

    def state(self, device, name):
        return self.properties.get((device, name), ("", {}))[0]

    def value(self, device, name, element):
        return self.properties.get((device, name), ("", {}))[1].get(element, "")

    def number(self, device, name, element):
        return float(self.value(device, name, element) or "nan")

    def has(self, device, name):
        return (device, name) in self.properties

    def wait_state(self, device, name, *states, limit=LIMIT):
        return self.wait(lambda: self.state(device, name) in states, f"{device}.{name} {states}", limit)

    def wait_answer(self, device, name, *states, limit=LIMIT):
        """Waits until one of the states was told after the newest request, be it for a moment only."""
        since = self.asked[(device, name)]
        return self.wait(lambda: [event for event in self.history[since:] if event[:2] == (device, name)
                                  and event[2] in states], f"{device}.{name} {states} as an answer", limit)

    def wait_message(self, text, limit=LIMIT):
        return self.wait(lambda: any(text in message for message in self.messages), f"message {text!r}", limit)

    def connect(self, device, blobs=True):
        self.wait(lambda: self.has(device, "CONNECTION"), f"device {device}")
        self.set(device, "CONNECTION", CONNECT="On")
        self.wait_state(device, "CONNECTION", "Ok")
        self.wait(lambda: self.has(device, "CCD_EXPOSURE") and self.has(device, "CAMERA_INFO"), "properties")
        if blobs:
            self.send(f"<enableBLOB device={quoteattr(device)}>Also</enableBLOB>")

    def disconnect(self, device):
        self.set(device, "CONNECTION", DISCONNECT="On")
        self.wait(lambda: not self.has(device, "CAMERA_INFO"), f"{device} disconnected")  # the last to go

    def expose(self, device, seconds):
        """@return the picture."""
        before = len(self.pictures.get(device, []))
        self.set(device, "CCD_EXPOSURE", CCD_EXPOSURE_VALUE=seconds)
        self.wait(lambda: len(self.pictures.get(device, [])) > before, f"a picture of {device}")
        self.wait_state(device, "CCD_EXPOSURE", "Ok")
        return Fits(self.pictures[device][-1])

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()


class Server:
    """indiserver with the driver and simulated cameras, with a home of its own."""

    port = 17600

    def __init__(self, bin_directory, *cameras, options=(), environment=None, before=None, home=None):
        Server.port += 1
        self.port = Server.port
        self.bin = bin_directory
        self.home = home or tempfile.mkdtemp(prefix="indi-")
        self.log = os.path.join(self.home, "cameras.log")
        self.driver_log = os.path.join(self.home, "driver.log")
        server = ["indiserver", "-v", "-p", str(self.port), "-u", os.path.join(self.home, "socket"), "-r", "0", "-m",
                  "600", os.path.join(bin_directory, "indi_vorn_ccd")]
        # The cameras outlast the server, as real ones do.
        server = ["sh", "-c", f'{before or ":"}; "$@" & echo $! >"$HOME/pid"; wait; touch "$HOME/over"; sleep 3', "sh"
                  ] + server
        command = [os.path.join(bin_directory, "vornsim"), "run", "--log", self.log]
        for camera in cameras:
            command += ["--camera", camera]
        command += list(options) + ["--"] + server
        variables = dict(os.environ, HOME=self.home, **(environment or {}))
        with open(self.driver_log, "w", encoding="utf-8") as log:
            self.process = subprocess.Popen(command, stdout=log, stderr=log, env=variables, start_new_session=True)

    def client(self):
        end = time.monotonic() + LIMIT
        while True:
            try:
                return Client(self.port)
            except OSError:
                if time.monotonic() > end or self.process.poll() is not None:
                    raise AssertionError("the server does not start: " + self.driver_text()) from None
                time.sleep(0.02)

    def driver_text(self):
        with open(self.driver_log, encoding="utf-8", errors="replace") as file:
            return file.read()

    def camera_text(self):
        with open(self.log, encoding="utf-8") as file:
            return file.read()

    def driver_pid(self):
        for entry in os.listdir("/proc"):
            try:
                with open(f"/proc/{entry}/environ", "rb") as file:
                    mine = f"HOME={self.home}".encode() in file.read().split(b"\0")
                with open(f"/proc/{entry}/comm", encoding="ascii") as file:
                    if mine and file.read().strip() == "indi_vorn_ccd":
                        return int(entry)
            except OSError:
                continue
        return None

    def end(self, whole=True, signal_number=signal.SIGTERM):
        """Ends the server, or only the driver. @return seconds until the driver is gone"""
        pid = self.driver_pid()
        target = pid
        if whole:
            with open(os.path.join(self.home, "pid"), encoding="ascii") as file:
                target = int(file.read())
        start = time.monotonic()
        os.kill(target, signal_number)
        while os.path.exists(f"/proc/{pid}/fd/0") and time.monotonic() < start + LIMIT:
            time.sleep(0.01)
        return time.monotonic() - start

    def stop(self):
        """Ends everything. @return what the driver wrote"""
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGTERM)
        self.process.wait(20)
        text = self.driver_text()
        shutil.rmtree(self.home, ignore_errors=True)
        return text
