#!/usr/bin/python3
# The GNOME Files extension against a running `nimbrell --headless`, with
# the real rclone syncing a folder to a `local` remote.
#   test_nautilus.py NIMBRELL_EXECUTABLE

import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "integrations", "nautilus"))
NIMBRELL = sys.argv.pop(1) if len(sys.argv) > 1 else os.path.join(HERE, "..", "..", "build", "bin", "nimbrell")

import nimbrell  # noqa: E402
from gi.repository import GLib  # noqa: E402


def wait_until(condition, seconds=60):
    deadline = time.monotonic() + seconds
    context = GLib.MainContext.default()
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("timed out waiting")
        context.iteration(False) or time.sleep(0.01)


def ask(command, fields):
    answers = []
    nimbrell.request(command, fields, answers.append)
    wait_until(lambda: answers)
    return answers[0]


class Tables(unittest.TestCase):
    def test_emblems(self):
        for state, emblem in [("synced", "nimbrell-synced-symbolic"), ("conflict", "nimbrell-conflict-symbolic"),
                              ("excluded", "nimbrell-excluded-symbolic"), (None, None), ("unheard-of", None)]:
            self.assertEqual(nimbrell.emblem_for(state), emblem)
        for state in nimbrell.STATES:  # each has its icon, installed beside the program's
            icon = os.path.join(HERE, "..", "..", "data", "emblems", "%s.svg" % nimbrell.emblem_for(state))
            self.assertTrue(os.path.isfile(icon), icon)

    def test_menus(self):
        base = ["Sync Now", "Show in Nimbrell", "Copy Share Link", "Recently Removed…"]
        with tempfile.TemporaryDirectory() as directory:
            for path, state, folder, labels in [
                ("/f/a.txt", "synced", "F", base),
                ("/f/a.txt", "conflict", "F", base + ["Keep This", "Keep Both"]),
                (directory, "conflict", "F", base),  # a directory holding a conflict: no copy of one
                ("/elsewhere", None, None, []),
            ]:
                items = nimbrell.menu_for(path, state, folder)
                self.assertEqual([label for label, _, _ in items], labels)
        commands = {label: (command, fields) for label, command, fields in nimbrell.menu_for("/f/a", "conflict", "F")}
        self.assertEqual(commands["Recently Removed…"], ("open", {"folder": "F", "sheet": "removed"}))
        self.assertEqual(commands["Keep This"], ("resolve", {"path": "/f/a", "choice": "keepThis"}))


class WithNimbrell(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        root = self.tmp.name
        self.home = os.path.join(root, "home")
        self.docs = os.path.join(self.home, "Docs")
        self.remote = os.path.join(root, "remote")
        for directory in (self.docs, self.remote, os.path.join(root, "run")):
            os.makedirs(directory, mode=0o700)
        self.env = dict(os.environ, HOME=self.home, XDG_RUNTIME_DIR=os.path.join(root, "run"),
                        XDG_CONFIG_HOME=os.path.join(self.home, ".config"), XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                        XDG_CACHE_HOME=os.path.join(self.home, ".cache"), QT_QPA_PLATFORM="offscreen")
        self.env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.saved = {key: os.environ.get(key) for key in ("HOME", "XDG_CONFIG_HOME")}
        os.environ.update(HOME=self.home, XDG_CONFIG_HOME=self.env["XDG_CONFIG_HOME"])
        for name, text in [("a.txt", "a"), ("b.txt", "b"), ("sub/c.txt", "c")]:
            self.write(os.path.join(self.docs, name), text)
        self.cli("remotes", "add", "loc", "local")
        self.cli("folders", "add", "Docs", self.docs, "loc:" + self.remote)
        self.service = None
        self.start()
        self.seen = []
        self.states = nimbrell.States(self.seen.extend)

    def tearDown(self):
        self.stop()
        for key, value in self.saved.items():
            if value is None:
                os.environ.pop(key, None)
            else:
                os.environ[key] = value
        self.tmp.cleanup()

    @staticmethod
    def write(path, text):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as file:
            file.write(text)

    def cli(self, *arguments):
        return subprocess.run([NIMBRELL, *arguments], env=self.env, check=True, capture_output=True, text=True).stdout

    def start(self):
        self.service = subprocess.Popen([NIMBRELL, "--headless"], env=self.env, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        wait_until(lambda: json.loads(self.cli("status", "--json")).get("instance"))
        self.cli("resume")  # automatic sync: the folder's watcher knows what is pending
        wait_until(lambda: json.loads(self.cli("status", "--json")).get("folders", [{}])[0].get("lastSync"))

    def stop(self):
        if self.service and self.service.poll() is None:
            self.service.terminate()
            self.service.wait(150)

    def state(self, name):
        return self.states.state(os.path.join(self.docs, name) if name else self.docs)

    def settle(self, names, expected):
        for name in names:
            self.state(name)
        wait_until(lambda: [self.state(name) for name in names] == expected)

    def test_states_follow_the_folder_and_come_back_after_a_restart(self):
        self.assertTrue(self.states.connected)
        self.settle(["a.txt", "sub", ""], ["synced"] * 3)
        self.assertIsNone(self.states.state(self.home))  # outside: never asked for
        self.assertNotIn(self.home, self.states._watched)

        # An edit: pending or syncing, then synced; the directories above it follow.
        self.seen.clear()
        self.write(os.path.join(self.docs, "sub", "c.txt"), "changed")
        wait_until(lambda: self.state("sub/c.txt") in ("pending", "syncing"))
        wait_until(lambda: self.state("sub/c.txt") == "synced")
        self.assertIn(os.path.join(self.docs, "sub"), self.seen)

        self.cli("folders", "edit", "Docs", "--skip", "sub")
        self.settle(["sub", "sub/c.txt", "a.txt"], ["excluded", "excluded", "synced"])

        # Nimbrell goes: every emblem goes with it, and comes back with it
        # without a call.
        self.seen.clear()
        self.stop()
        wait_until(lambda: not self.states.connected)
        self.assertIn(os.path.join(self.docs, "a.txt"), self.seen)
        self.assertIsNone(self.state("a.txt"))
        self.start()
        wait_until(lambda: self.states.connected and self.states._states.get(os.path.join(self.docs, "a.txt")) == "synced")
        self.assertEqual(self.state("sub"), "excluded")

    def test_actions(self):
        self.settle(["a.txt"], ["synced"])
        path = os.path.join(self.docs, "a.txt")
        for command, fields, answer in [
            ("share", {"path": path}, {"ok": False, "error": "This remote cannot make share links"}),
            ("resolve", {"path": path, "choice": "keepThis"}, {"ok": False, "error": path + " is not a copy of an open conflict"}),
            ("open", {"folder": self.states.folder_of(path)}, {"ok": False, "error": "no window"}),
        ]:
            reply = ask(command, fields)
            self.assertEqual({key: reply.get(key) for key in answer}, answer, command)

        # Both sides change: a conflict, whose two copies say so; Keep Both
        # settles it.
        self.write(os.path.join(self.remote, "a.txt"), "remote")
        self.write(path, "local, longer")
        self.assertTrue(ask("sync", {"folders": [self.states.folder_of(path)]})["ok"])
        wait_until(lambda: self.state("a.txt") == "conflict")
        copies = [name for name in os.listdir(self.docs) if name.startswith("a.") and name != "a.txt"]
        self.assertEqual(len(copies), 1, os.listdir(self.docs))
        self.settle([copies[0]], ["conflict"])
        self.settle(["b.txt"], ["synced"])
        self.assertTrue(ask("resolve", {"path": os.path.join(self.docs, copies[0]), "choice": "keepBoth"})["ok"])
        wait_until(lambda: self.state("a.txt") == "synced")
        self.assertFalse(os.path.exists(os.path.join(self.docs, copies[0])))  # renamed for a person to read


if __name__ == "__main__":
    unittest.main()
