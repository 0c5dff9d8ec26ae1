"""Frame of the acceptance scenarios, which run in the sample machine.

It starts the installed tool, looks at its windows through the probe, presses real buttons and keys (XTest), and
runs the scenarios one by one: each within its time, each on a machine that is put back to order behind it.
"""

import codecs
import collections
import glob
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import time
import traceback

SHARE = "/share"
TEMPLATES = "/boot/pelva"
LOCK = "/var/lock/gtk-tarnel"
LOG = "/var/log/gtk-tarnel"
PROBE = "/run/probe"
MAIN = "Pelva integrity-check templates"
# How much longer than a machine that starts in 10 s this one may take for everything.
PATIENCE = max(1, float(os.environ.get("MACHINE_STARTED", "0")) / 10)

Window = collections.namedtuple("Window", "title x y width height")
Widget = collections.namedtuple("Widget", "window kind name text x y width height sensitive")
Row = collections.namedtuple("Row", "tree path expanded in_view x y width height image texts")


class Failure(Exception):
    """What a user would have seen otherwise."""


def check(condition, message):
    if not condition:
        raise Failure(message)


def check_equal(seen, expected, what):
    check(seen == expected, f"{what}: {seen!r} instead of {expected!r}")


def wait(condition, what, seconds=60):
    """The condition's first true value; polls, for nothing tells us when the tool has done its work."""
    end = time.monotonic() + seconds * PATIENCE
    while True:
        value = condition()
        if value:
            return value
        check(time.monotonic() < end, f"not seen within {seconds * PATIENCE:.0f} s: {what}")
        time.sleep(0.05)


def xdotool(*arguments):
    subprocess.run(["xdotool", *map(str, arguments)], check=True, timeout=30 * PATIENCE)


def shell(command):
    return subprocess.run(command, shell=True, check=True, timeout=60 * PATIENCE, stdout=subprocess.PIPE).stdout.decode()


def mounts():
    with open("/proc/mounts", encoding="utf-8") as table:
        return table.read()


class Look:
    """One look at the screen."""

    def __init__(self, answer):
        self.windows, self.widgets, self.rows = [], [], []
        for line in answer.splitlines():
            kind, *fields = [codecs.escape_decode(field)[0].decode("utf-8", "surrogateescape")
                             for field in line[:-1].split(b"\t")]
            if kind == "window":
                self.windows.append(Window(fields[0], *map(int, fields[1:])))
            elif kind == "widget":
                self.widgets.append(Widget(self.windows[-1].title, *fields[:3], *map(int, fields[3:])))
            else:
                self.rows.append(Row(*fields[:2], *map(int, fields[2:8]), fields[8], fields[9:]))

    def window(self, title):
        return next((window for window in self.windows if window.title == title), None)

    def widget(self, name):
        return next((widget for widget in self.widgets if widget.name == name), None)

    def texts(self, title):
        return [widget.text for widget in self.widgets if widget.window == title and widget.text]

    def children(self, tree, path):
        """The rows right below one, or the top rows for an empty path."""
        depth = path.count(":") + 1 if path else 0
        return [row for row in self.rows if row.tree == tree and row.path.count(":") == depth
                and row.path.startswith(path + ":" if path else "")]

    def row(self, tree, *names):
        """The row that the names lead to from the top, or None."""
        path = ""
        for name in names:
            found = next((row for row in self.children(tree, path) if name in row.texts), None)
            if not found:
                return None
            path = found.path
        return found


class Tool:
    """The running tool."""

    def __init__(self, trace=True, probe=True, command=("gtk-tarnel",), **environment):
        environment = {**os.environ, **environment}
        if trace:
            environment["TRACE_PELVA"] = "1"
        if probe:
            environment["GTK_MODULES"] = f"{SHARE}/probe.so"
        if os.path.exists(PROBE):
            os.unlink(PROBE)
        with open("/run/tool.out", "wb") as out, open("/run/tool.err", "wb") as err:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=err, env=environment)
        Tool.running = self

    running = None

    @staticmethod
    def output(name):
        if not os.path.exists(f"/run/tool.{name}"):
            return ""
        with open(f"/run/tool.{name}", encoding="utf-8", errors="surrogateescape") as text:
            return text.read()

    def trace(self):
        """The trace's messages, without the places in the source that they come from."""
        return re.findall(r"^\[\S+ \d+ \S+\] (.*)$", self.output("err"), re.MULTILINE)

    def ask(self, request):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(60 * PATIENCE)
            connection.connect(PROBE)
            connection.sendall(request.encode() + b"\n")
            return b"".join(iter(lambda: connection.recv(1 << 20), b""))

    def look(self):
        check(self.process.poll() is None, f"the tool has ended with status {self.process.poll()}")
        return Look(self.ask("look")) if os.path.exists(PROBE) else Look(b"")

    def picture(self, name):
        self.ask(f"picture {SHARE}/{name}.png")

    def wait_window(self, title):
        """The first look at the window in its place: a window manager moves it when it opens."""
        seen = [None]

        def settled():
            look = self.look()
            before, seen[0] = seen[0], look.window(title)
            return look if seen[0] and seen[0] == before else None
        return wait(settled, f'window "{title}"')

    def wait_closed(self, title):
        wait(lambda: not self.look().window(title), f'window "{title}" closed')

    def click(self, item, button=1):
        xdotool("mousemove", item.x + item.width // 2, item.y + item.height // 2, "click", *str(button).split())

    def show(self, tree, *names):
        """Scrolls with the wheel until a row is in view, and returns it."""
        for _ in range(100):
            look = self.look()
            row, view = look.row(tree, *names), look.widget(tree)
            check(row, f"no row {names!r}")
            if row.in_view and row.y + row.height // 2 < view.y + view.height:
                return row
            first = next(other for other in look.rows if other.tree == tree and other.in_view)
            down = row.in_view or [*map(int, row.path.split(":"))] > [*map(int, first.path.split(":"))]
            self.click(view, "--repeat 3 --delay 20 " + ("5" if down else "4"))
        raise Failure(f"row {names!r} does not come into view")

    def expand(self, *names, tree="filebrowser"):
        """Opens a row with a click on its arrow."""
        row = self.show(tree, *names)
        if not row.expanded:
            xdotool("mousemove", row.x - 10, row.y + row.height // 2, "click", 1)

        def opened():
            look = self.look()
            row = look.row(tree, *names)
            below = look.children(tree, row.path)
            return row.expanded and not any("Loading, please wait..." in child.texts for child in below)
        wait(opened, f"row {names!r} open")

    def mark(self, tree, *names):
        """Flips a row's mark with the right button and waits for its image to tell."""
        row = self.show(tree, *names)
        self.click(row, 3)
        wait(lambda: self.look().row(tree, *names).image != row.image, f"another image at {names!r}")

    def enter(self, text):
        """Types a line in the place of what the field holds."""
        self.press("ctrl+a")
        xdotool("type", "--clearmodifiers", "--delay", 30, text)
        self.press("Return")

    def press(self, *keys):
        xdotool("key", "--clearmodifiers", *keys)

    def answer(self, title, text, button):
        """Waits for a dialog, checks what it says, and presses one of its buttons."""
        look = self.wait_window(title)
        check(text in look.texts(title), f'"{title}" says {look.texts(title)!r}, not {text!r}')
        self.click(next(widget for widget in look.widgets if widget.window == title and widget.text == button))
        self.wait_closed(title)

    def start(self):
        """Takes the warning away and waits for the main window."""
        self.answer("Warning", "Pelva device is not found.", "OK")
        return self.wait_window(MAIN)

    def close(self):
        # A window that goes while xdotool looks at it ends the search.
        search = ["xdotool", "search", "--name", f"^{MAIN}$", "windowfocus", "--sync"]
        wait(lambda: subprocess.run(search, check=False, timeout=30 * PATIENCE).returncode == 0, "the focus")
        self.press("alt+F4")

    def wait_end(self, seconds=60):
        try:
            return self.process.wait(seconds * PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failure(f"the tool still runs after {seconds * PATIENCE:.0f} s") from None

    def quit(self):
        """Closes a tool without unsaved changes; checks its end."""
        self.close()
        check_equal(self.wait_end(), 0, "exit status")
        warnings = [line for line in Tool.output("err").splitlines() if "-WARNING **" in line or "-CRITICAL **" in line]
        check_equal(warnings, [], "warnings of the libraries")
        check_left_nothing()


def run_tool(**arguments):
    """Runs a tool that ends by itself: its exit status."""
    return Tool(probe=False, **arguments).wait_end()


def check_left_nothing():
    check("/tmp/tarnel" not in mounts(), f"still mounted:\n{mounts()}")
    check_equal(glob.glob("/tmp/tarnel*"), [], "left in /tmp")
    check(not os.path.exists(LOG), f"{LOG} was not removed")


def restore():
    """Puts the machine back in order behind a scenario, whatever became of it."""
    if Tool.running and Tool.running.process.poll() is None:
        Tool.running.process.kill()
        Tool.running.process.wait(30 * PATIENCE)
    for line in reversed(mounts().splitlines()):
        directory = codecs.escape_decode(line.split()[1])[0].decode()
        if directory.startswith(("/tmp/", "/mnt", "/proc/")):
            subprocess.run(["umount", "-l", directory], check=False)
    for leftover in glob.glob("/tmp/tarnel*"):
        shutil.rmtree(leftover, ignore_errors=True)
    shutil.rmtree(TEMPLATES, ignore_errors=True)
    os.mkdir(TEMPLATES)


def explain(name, error):
    """Everything that helps to find out why a scenario failed."""
    for line in "".join(traceback.format_exception(error)).splitlines():
        print("  " + line)
    for stream in ("out", "err"):
        for line in Tool.output(stream).splitlines()[-25:]:
            print(f"  {stream}: {line}")
    try:
        Tool.running.picture(name)
        print(f"  the screen: {name}.png")
    except (OSError, AttributeError):
        pass


def run(scenarios):
    """Runs functions as scenarios and ends the program: a line for each, one of counts, and the status."""
    seconds = int(120 * PATIENCE)

    def out_of_time(*_):
        raise Failure(f"not finished within {seconds} s")
    signal.signal(signal.SIGALRM, out_of_time)
    failed = 0
    for function in scenarios:
        begin = time.monotonic()
        name = function.__doc__.splitlines()[0]
        with open(f"{SHARE}/running", "w", encoding="utf-8") as running:
            print(name, file=running)
        signal.alarm(seconds)
        try:
            function()
            verdict = "PASS"
        except Exception as error:  # pylint: disable=broad-except
            signal.alarm(seconds)
            verdict = "FAIL"
            failed += 1
            explain(function.__name__, error)
        signal.alarm(0)
        restore()
        print(f"{verdict} {name} ({time.monotonic() - begin:.1f} s)", flush=True)
    print(f"machine: {len(scenarios) - failed} passed, {failed} failed, 0 skipped", flush=True)
    sys.exit(failed != 0)
