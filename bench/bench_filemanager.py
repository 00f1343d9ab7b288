#!/usr/bin/python3
# What a file manager costs while it shows Nimbrell's emblems: the GNOME Files
# extension's own client, subscribed to every file of a 10,000-file folder,
# against a running `nimbrell --headless` and the real rclone.
#   bench_filemanager.py [NIMBRELL_EXECUTABLE] [--idle SECONDS]
# Prints the channel's messages during the folder's first sync, and the
# wake-ups and CPU of both processes while nothing changes.

import json
import os
import resource
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "integrations", "nautilus"))
arguments = sys.argv[1:]
IDLE = 30.0
if "--idle" in arguments:
    IDLE = float(arguments.pop(arguments.index("--idle") + 1))
    arguments.remove("--idle")
NIMBRELL = arguments[0] if arguments else os.path.join(HERE, "..", "build", "bin", "nimbrell")

DIRECTORIES, FILES_EACH = int(os.environ.get("BENCH_DIRS", 100)), 100

root = tempfile.mkdtemp(prefix="bench-filemanager-")
home = os.path.join(root, "home")
docs = os.path.join(home, "Docs")
env = dict(os.environ, HOME=home, XDG_RUNTIME_DIR=os.path.join(root, "run"), XDG_CONFIG_HOME=os.path.join(home, ".config"),
           XDG_DATA_HOME=os.path.join(home, ".local/share"), XDG_CACHE_HOME=os.path.join(home, ".cache"))
env.pop("DBUS_SESSION_BUS_ADDRESS", None)
os.environ.update(HOME=home, XDG_CONFIG_HOME=env["XDG_CONFIG_HOME"])
os.makedirs(env["XDG_RUNTIME_DIR"], mode=0o700)
os.makedirs(os.path.join(root, "remote"))

import nimbrell  # noqa: E402  (after HOME: it finds Nimbrell through it)
from gi.repository import GLib  # noqa: E402

paths = [docs]
for d in range(DIRECTORIES):
    directory = os.path.join(docs, "d%03d" % d)
    os.makedirs(directory)
    paths.append(directory)
    for f in range(FILES_EACH):
        path = os.path.join(directory, "f%03d.txt" % f)
        with open(path, "w") as file:
            file.write(path)
        paths.append(path)


def cli(*words):
    return subprocess.run([NIMBRELL, *words], env=env, check=True, capture_output=True, text=True).stdout


def iterate_until(condition, seconds=600):
    deadline = time.monotonic() + seconds
    context = GLib.MainContext.default()
    while not condition():
        if time.monotonic() > deadline:
            raise SystemExit("bench_filemanager: timed out")
        context.iteration(False) or time.sleep(0.01)


def wakeups(pid):
    """Context switches of every thread of the process: each is a wake-up."""
    total = 0
    for task in os.listdir("/proc/%d/task" % pid):
        with open("/proc/%d/task/%s/status" % (pid, task)) as status:
            for line in status:
                if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                    total += int(line.split()[1])
    return total


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def idle_window(seconds, pids):
    """Wake-ups and CPU of each process over `seconds` while nothing changes;
    this process sleeps in its main loop, as a file manager would."""
    before = {pid: (wakeups(pid), cpu_seconds(pid)) for pid in pids}
    loop = GLib.MainLoop()
    GLib.timeout_add(int(seconds * 1000), loop.quit)
    loop.run()
    # Less the wake-up that ends the window.
    return {pid: (wakeups(pid) - before[pid][0] - (1 if pid == os.getpid() else 0), cpu_seconds(pid) - before[pid][1])
            for pid in pids}


cli("remotes", "add", "loc", "local")
cli("folders", "add", "Docs", docs, "loc:" + os.path.join(root, "remote"))
service = subprocess.Popen([NIMBRELL, "--headless"], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
try:
    while '"instance":{' not in subprocess.run([NIMBRELL, "status", "--json"], env=env, capture_output=True, text=True).stdout:
        time.sleep(0.1)

    # The extension follows every file and directory, as if all were shown.
    messages = []
    states = nimbrell.States(lambda changed: None)
    take = states._take
    states._take = lambda message: (messages.append((time.monotonic(), len(message.get("files", [])))), take(message))
    started = time.monotonic()
    for path in paths:
        states.state(path)
    iterate_until(lambda: len(states._states) == len(paths))
    print("file states: %d paths followed, all known %.0f ms after they were asked for" % (len(paths), (time.monotonic() - started) * 1000))

    # And a follower of the folders' status, as `nimbrell sync --wait` is.
    follower = socket.socket(socket.AF_UNIX)
    follower.connect(nimbrell.socket_path())
    follower.sendall(b'{"nimbrell": 1, "command": "subscribe", "paths": [], "status": true}\n')
    follower.setblocking(False)
    follower_lines = []

    def read_follower(*_):
        try:
            data = follower.recv(1 << 20)
        except BlockingIOError:
            return True
        follower_lines.extend([time.monotonic()] * data.count(b"\n"))
        return bool(data)
    GLib.io_add_watch(follower.fileno(), GLib.IO_IN, read_follower)
    iterate_until(lambda: follower_lines)

    messages.clear()
    follower_lines.clear()
    usage = resource.getrusage(resource.RUSAGE_SELF)
    started = time.monotonic()
    cli("sync", "Docs")
    iterate_until(lambda: json.loads(cli("status", "--json"))["folders"][0]["lastSync"] and not states._watched
                  and all(state == "synced" for state in states._states.values()), 900)
    elapsed = time.monotonic() - started
    after = resource.getrusage(resource.RUSAGE_SELF)
    changed = sum(count for _, count in messages)
    print("first sync of %d files: %.1f s; the channel sent %d messages (%.1f a second), %d file states in all; "
          "the client's CPU %.2f s" % (DIRECTORIES * FILES_EACH, elapsed, len(messages), len(messages) / elapsed, changed,
                                       after.ru_utime + after.ru_stime - usage.ru_utime - usage.ru_stime))
    busiest = max((sum(1 for t, _ in messages if start <= t < start + 1) for start, _ in messages), default=0)
    print("  at most %d messages in any one second" % busiest)
    print("  a follower of the status (as sync --wait): %d messages (%.1f a second)" % (len(follower_lines), len(follower_lines) / elapsed))
    follower.close()

    for label, pids in [("subscribed", [os.getpid(), service.pid])]:
        figures = idle_window(IDLE, pids)
        client, server = figures[os.getpid()], figures[service.pid]
        print("idle %.0f s, %s: the file manager's client %d wake-ups, %.3f s CPU; Nimbrell %d wake-ups, %.3f s CPU"
              % (IDLE, label, client[0], client[1], server[0], server[1]))
    states.connect = lambda: None  # the file manager goes, for good
    states._lost()
    server = idle_window(IDLE, [service.pid])[service.pid]
    print("idle %.0f s, no file manager: Nimbrell %d wake-ups, %.3f s CPU" % (IDLE, server[0], server[1]))
finally:
    service.terminate()
    service.wait(150)
    subprocess.run(["rm", "-rf", root])
