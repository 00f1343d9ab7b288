#!/usr/bin/env python3
"""Random histories of whole syncs, driven through the command line.

Each episode makes a folder pair in a fresh HOME, runs a list of random steps
drawn from its seed (file operations on either side, interruptions, control),
then syncs until it succeeds, as a user would (Sync, Retry, Review and apply),
and checks that nothing was lost, both sides agree, the state is clean, no two
bisyncs of the pair ever ran at once, and no run refilled an empty or missing
local folder. A failing episode prints its seed and steps, then the shortest
failing list of steps it can find.
"""
from datetime import datetime
import argparse, atexit, hashlib, itertools, json, os, random, re, shlex, shutil, signal, socket, subprocess, sys, tempfile, threading, time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
NAMES = ["notes", "a b", "it's", 'say "hi"', "café", "Ünïcödé", "📷 photo", "x" * 200, "Report", "report",
         "data.bin", "-dash", "deep"]
OPS = ["create"] * 6 + ["edit"] * 4 + ["both"] * 2 + ["truncate", "delete", "delete", "rename", "move", "mkdir",
       "rmdir", "many", "sync", "sync", "sync", "sync"]
BREAKS = ["term", "kill", "killrclone", "server", "diskfull", "unmount", "away"]
CONTROL = ["pause", "keep", "policy"]


def step_list(seed, remote, choices=False):
    """The seed's steps; with choices, a directory skipped and taken back now and then, drawn from a
    second stream so that the other steps stay those of the seed alone."""
    steps = plain_steps(seed, remote)
    if choices:
        rng = random.Random("choices %d" % seed)
        for at in sorted((rng.randrange(len(steps) + 1) for _ in range(rng.randint(1, 4))), reverse=True):
            steps.insert(at, {"op": "skip", "pick": rng.random()})
    return steps


def plain_steps(seed, remote):
    rng = random.Random(seed)
    steps = []
    for _ in range(rng.randint(20, 100)):
        roll = rng.random()
        if roll < 0.06:
            kinds = [b for b in BREAKS if remote != "local" or b != "server"]
            steps.append({"op": rng.choice(kinds), "delay": round(rng.uniform(0.05, 1.5), 2)})
        elif roll < 0.10:
            steps.append({"op": rng.choice(CONTROL), "pick": rng.random()})
        else:
            op = rng.choice(OPS)
            steps.append({"op": op, "side": rng.choice(["local", "remote"]), "pick": rng.random(),
                          "name": rng.choice(NAMES), "dir": rng.choice(["", "", "sub", "sub/inner", "Sub"]),
                          "size": rng.choice([0, 1, 280, 280, 4096, 70000]) if rng.random() > 0.02 else 12_000_000 + rng.randrange(20_000_000)})
    return steps


def sha(path):
    h = hashlib.sha256()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            h.update(block)
    return h.hexdigest()


def tree(top, skip=(".nimbrell-removed",)):
    """relative path -> hash of every file under top."""
    files = {}
    for base, dirs, names in os.walk(top):
        dirs[:] = [d for d in dirs if d not in skip]
        for n in names:
            p = os.path.join(base, n)
            try:
                if os.path.isfile(p) and not os.path.islink(p):
                    files[os.path.relpath(p, top)] = sha(p)
            except FileNotFoundError:
                pass  # a run's temporary file, renamed meanwhile
    return files


def clock():
    return time.strftime("%H:%M:%S") + (".%03d" % (time.time() % 1 * 1000))


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Failure(Exception):
    pass


class Episode:
    def __init__(self, seed, remote, steps, program, rclone, stats, verbose=False):
        self.seed, self.remote, self.steps, self.stats, self.verbose = seed, remote, steps, stats, verbose
        self.program, self.rclone = program, rclone
        self.rng = random.Random(seed ^ 0x5EED)
        self.skipped = False  # "sub" left out of the sync
        self.dir = tempfile.mkdtemp(prefix="torture-")
        self.home = os.path.join(self.dir, "home")
        self.local = os.path.join(self.home, "Sync")
        self.served = os.path.join(self.dir, "served")
        self.remote_dir = os.path.join(self.served, "data")
        self.disk = os.path.join(self.dir, "disk")
        self.env = dict(os.environ, HOME=self.home, XDG_CONFIG_HOME=self.home + "/.config",
                        XDG_DATA_HOME=self.home + "/.local/share", XDG_CACHE_HOME=self.home + "/.cache",
                        XDG_RUNTIME_DIR=os.path.join(self.dir, "run"), RCLONE_CONFIG=os.path.join(self.dir, "rclone.conf"),
                        QT_QPA_PLATFORM="offscreen", QT_LOGGING_RULES="*.debug=false")
        self.env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.service = self.server = None
        self.port = free_port()
        self.must_keep = {}       # content hash -> what wrote it
        self.superseded = set()   # contents a user overwrote or deleted
        self.written = {"local": {}, "remote": {}}  # path -> contents written there, in order
        self.loser_ok = set()     # contents a deleting conflict policy may drop
        self.during_run = {}      # content -> (side, path, time) of a write made while a bisync ran
        self.states = {}          # path -> (size, mtime) of every content that stood there on either side
        self.policy, self.mounted, self.failed = "keepBoth", False, False
        self.counter = 0
        self.overlap, self.sampling = 0, True

    # -- setup -------------------------------------------------------------
    def trace(self, text):
        """A timed line in the episode's own log, kept with a failing episode (TORTURE_KEEP=1)."""
        with open(os.path.join(self.dir, "trace.log"), "a", encoding="utf-8") as f:
            f.write("%s %s\n" % (clock(), text))

    def sh(self, *args, check=True, timeout=300, **kw):
        r = subprocess.run(list(args), env=self.env, capture_output=True, text=True, timeout=timeout, **kw)
        if check and r.returncode != 0:
            raise Failure("%s: exit %d\n%s%s" % (" ".join(args), r.returncode, r.stdout, r.stderr))
        return r

    def nimbrell(self, *args, check=False, timeout=600):
        return self.sh(self.program, *args, check=check, timeout=timeout)

    def setup(self):
        os.makedirs(self.env["XDG_RUNTIME_DIR"], mode=0o700)
        os.makedirs(self.remote_dir)
        os.makedirs(self.home + "/.config/rclone")
        self.mount_local()
        if self.remote == "local":
            conf = "[r]\ntype = alias\nremote = %s\n" % self.served
        elif self.remote == "webdav":
            conf = "[r]\ntype = webdav\nurl = http://127.0.0.1:%d/\nvendor = rclone\npacer_min_sleep = 0\n" % self.port
        else:
            pw = self.sh(self.rclone, "obscure", "secret").stdout.strip()
            conf = ("[r]\ntype = sftp\nhost = 127.0.0.1\nport = %d\nuser = u\npass = %s\nshell_type = none\n"
                    "md5sum_command = none\nsha1sum_command = none\n" % (self.port, pw))
        with open(self.env["RCLONE_CONFIG"], "w") as f:
            f.write(conf)
        self.start_server()
        self.start_service()
        r = self.nimbrell("folders", "add", "Sync", self.local, "r:data", "--json")
        if r.returncode != 0:
            raise Failure("folders add: " + r.stderr)
        # Half the episodes with automatic sync on: the service's own runs
        # (the watcher's, after each change) interleave with the steps.
        if self.rng.random() < 0.5:
            self.nimbrell("resume")
        threading.Thread(target=self.sample, daemon=True).start()

    def mount_local(self):
        """The local folder lives on a small tmpfs, bound in place, when this process may mount."""
        os.makedirs(self.local, exist_ok=True)
        if os.geteuid() != 0 or os.environ.get("TORTURE_NAMESPACE") != "1":
            return
        os.makedirs(self.disk)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256m", "tmpfs", self.disk]).returncode != 0:
            return  # no mounts here: a plain folder, without the full-disk and unmount steps
        os.makedirs(self.disk + "/Sync")
        subprocess.run(["mount", "--bind", self.disk + "/Sync", self.local], check=True)
        self.mounted = True

    def start_server(self):
        if self.remote == "local":
            return
        args = [self.rclone, "serve", self.remote, self.served, "--addr", "127.0.0.1:%d" % self.port]
        # The steps change the served directory behind the server's back: it must not cache listings
        # for long. Not 0: with 0 the server's cache cleaner spins a core after each upload and
        # starves its own requests.
        args += ["--dir-cache-time", "10ms"]
        if self.remote == "sftp":
            args += ["--user", "u", "--pass", "secret"]
        self.server = subprocess.Popen(args, env=self.env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.time() + 10
        while time.time() < deadline:
            try:
                socket.create_connection(("127.0.0.1", self.port), 0.2).close()
                return
            except OSError:
                time.sleep(0.05)
        raise Failure("the %s server did not start" % self.remote)

    def stop_server(self):
        if self.server:
            self.server.terminate()
            try:
                self.server.wait(10)
            except subprocess.TimeoutExpired:  # a client still connected
                self.server.kill()
                self.server.wait(10)
            self.server = None

    def start_service(self):
        self.service = subprocess.Popen([self.program, "--headless"], env=self.env, stdout=subprocess.DEVNULL,
                                        stderr=open(os.path.join(self.dir, "service.log"), "a"))
        for _ in range(200):
            if self.nimbrell("status", "--json").returncode == 0 and \
                    json.loads(self.nimbrell("status", "--json").stdout).get("instance"):
                return
            time.sleep(0.05)
        raise Failure("the headless service did not start")

    def stop_service(self, sig=signal.SIGTERM):
        if self.service and self.service.poll() is None:
            self.service.send_signal(sig)
            try:
                self.service.wait(150)
            except subprocess.TimeoutExpired:
                raise Failure("the service did not quit within 150 s of SIGTERM")
        self.service = None

    def teardown(self):
        self.sampling = False
        try:
            self.stop_service()
        except Failure:
            pass
        self.stop_server()
        if self.mounted:
            subprocess.run(["umount", "-l", self.local], capture_output=True)
            subprocess.run(["umount", "-l", self.disk], capture_output=True)

    # -- invariant 4: sampled from /proc all along -------------------------
    def bisyncs(self):
        found = []
        for pid in os.listdir("/proc"):
            if not pid.isdigit():
                continue
            try:
                with open("/proc/%s/cmdline" % pid, "rb") as f:
                    args = f.read().split(b"\0")
            except OSError:
                continue
            if len(args) > 2 and os.path.basename(args[0]).startswith(b"rclone") and args[1] == b"bisync" and self.local.encode() in args \
                    and b"--dry-run" not in args:
                found.append(int(pid))
        return found

    def sample(self):
        while self.sampling:
            if len(self.bisyncs()) > 1:
                self.overlap += 1
            time.sleep(0.05)

    # -- the sides ---------------------------------------------------------
    def side(self, name):
        return self.local if name == "local" else self.remote_dir

    def files(self, side):  # what a user sees: not the temporary files of a transfer
        return sorted(p for p in tree(self.side(side)) if not p.endswith(".partial"))

    def dirs(self, side):
        top = self.side(side)
        return sorted(os.path.relpath(b, top) for b, d, n in os.walk(top) if b != top and ".nimbrell-removed" not in b)

    def pick(self, items, p):
        return items[min(int(p * len(items)), len(items) - 1)] if items else None

    def forget(self, side, rel):
        """A user overwrites or deletes what is at rel: that content may go."""
        p = os.path.join(self.side(side), rel)
        if os.path.isfile(p):
            self.superseded.add(sha(p))
        elif os.path.isdir(p):
            for h in tree(p).values():
                self.superseded.add(h)

    def blind_to(self, side, rel, size, mtime=None):
        """Whether no comparison of size and time could tell this content at rel (written now, or
        moved there with its time) from a copy already there.

        A WebDAV or SFTP remote keeps times to the second and has no hashes here: two contents of
        the same size within one second, one of them written there (or both sides changed), look
        the same to rclone without reading them. An edit here within the second of the copy it
        replaces is no such case: this computer keeps its times to the nanosecond. On the remote,
        the last run's listing may remember any content that stood at rel, here or there.
        """
        if self.remote == "local":
            return False
        when = time.time() if mtime is None else mtime
        if side == "remote" and any(s == size and abs(when - t) < 2 for s, t in self.states.get(rel, [])):
            return True
        for s in ("local", "remote"):
            q = os.path.join(self.side(s), rel)
            if (s == "remote" or s != side) and os.path.isfile(q) and os.path.getsize(q) == size \
                    and abs(when - os.path.getmtime(q)) < 2:
                return True
        return False

    def write(self, side, rel, size, what):
        p = os.path.join(self.side(side), rel)
        self.forget(side, rel)
        if os.path.isdir(p):
            return
        os.makedirs(os.path.dirname(p), exist_ok=True)
        self.counter += 1
        head = ("%s %d %s %s\n" % (what, self.counter, side, rel)).encode()
        body = head + self.rng.randbytes(max(0, size - len(head))) if size > 4096 else (head * (size // len(head) + 1))[:size]
        # Same size as what it replaces now and then: the hard case for a comparison by size and time.
        if os.path.isfile(p) and self.rng.random() < 0.3:
            old = os.path.getsize(p)
            body = (body * (old // max(1, len(body)) + 1))[:old] if body else body
            if old and body == open(p, "rb").read():
                body = bytes([(body[0] + 1) % 256]) + body[1:]
        while self.blind_to(side, rel, len(body)):  # one byte more may meet the other side's size
            body += b"+"
        running = bool(self.bisyncs())
        try:
            with open(p, "wb") as f:
                f.write(body)
        except OSError:
            return  # a full disk: nothing was written
        self.wrote(side, rel, hashlib.sha256(body).hexdigest(), "%s %s %s #%d" % (what, side, rel, self.counter), running)

    def wrote(self, side, rel, h, what, running):
        """Books a content the user wrote at rel."""
        self.trace("wrote %s %s %s" % (what, h[:12], "in a run" if running else ""))
        try:
            st = os.stat(os.path.join(self.side(side), rel))
            self.states.setdefault(rel, []).append((st.st_size, st.st_mtime))
        except OSError:
            pass  # a run already took it away
        if running:
            self.during_run[h] = (side, rel, time.time())
        self.must_keep.setdefault(h, "%s at %s%s" % (what, clock(), " in a run" if running else ""))
        self.written[side].setdefault(rel, []).append(h)
        other = self.written["remote" if side == "local" else "local"].get(rel, [])
        if self.policy != "keepBoth":
            self.loser_ok.update(other + [h])
        self.stats["files"] += 1

    # -- steps -------------------------------------------------------------
    def run_step(self, step):
        op = step["op"]
        if op in BREAKS:
            self.stats["interruptions"] += 1
            return self.interrupt(op, step["delay"])
        if op == "sync":
            return self.sync()
        if op == "pause":
            self.nimbrell("pause" if step["pick"] < 0.5 else "resume", "Sync")
            return
        if op == "keep":
            on = step["pick"] < 0.5
            self.nimbrell("folders", "edit", "Sync", "--keep-removed" if on else "--no-keep-removed")
            return
        if op == "skip":  # "sub" left out of the sync, or taken back
            self.skipped = not self.skipped
            self.nimbrell("folders", "edit", "Sync", "--skip" if self.skipped else "--unskip", "sub")
            return
        if op == "policy":
            self.policy = self.pick(["keepBoth", "newerWins", "localWins", "remoteWins"], step["pick"])
            self.nimbrell("folders", "edit", "Sync", "--conflict", self.policy)
            if self.policy != "keepBoth":  # any pending edit may now lose a conflict
                for side in self.written.values():
                    for hashes in side.values():
                        self.loser_ok.update(hashes)
            return
        side, top = step["side"], self.side(step["side"])
        rel = os.path.join(step["dir"], step["name"]) if step["dir"] else step["name"]
        existing = self.files(side)
        if op == "create":
            self.write(side, rel, step["size"], "create")
        elif op in ("edit", "truncate") and existing:
            target = self.pick(existing, step["pick"])
            if op == "edit":
                self.write(side, target, step["size"], "edit")
            else:
                size = int(os.path.getsize(os.path.join(top, target)) * step["pick"])
                if self.blind_to(side, target, size):
                    return
                self.forget(side, target)
                running = bool(self.bisyncs())
                with open(os.path.join(top, target), "r+b") as f:
                    f.truncate(size)
                self.wrote(side, target, sha(os.path.join(top, target)), "truncate %s %s" % (side, target), running)
        elif op == "both":  # the same file edited on both sides between two runs
            target = self.pick(self.files("local"), step["pick"]) or rel
            self.write("local", target, step["size"], "both")
            time.sleep(self.rng.choice([0, 0.2, 1.1]))
            self.write("remote", target, step["size"] // 2 + 1, "both")
        elif op == "delete" and existing:
            target = self.pick(existing, step["pick"])
            self.forget(side, target)
            os.remove(os.path.join(top, target))
        elif op in ("rename", "move") and existing:
            source = self.pick(existing, step["pick"])
            dest = rel if op == "move" else os.path.join(os.path.dirname(source), step["name"] + " (2)")
            dp = os.path.join(top, dest)
            moved = os.stat(os.path.join(top, source))
            # A move keeps the file's time: onto a file of its size within the second, unseen too.
            if os.path.isdir(dp) or dest == source or self.blind_to(side, dest, moved.st_size, moved.st_mtime):
                return
            self.forget(side, dest)
            os.makedirs(os.path.dirname(dp), exist_ok=True)
            running = bool(self.bisyncs())
            os.rename(os.path.join(top, source), dp)
            # Its content now stands at dest: it may meet a change there on the other side, and lose.
            self.wrote(side, dest, sha(dp), "%s %s %s -> %s" % (op, side, source, dest), running)
        elif op == "mkdir":
            os.makedirs(os.path.join(top, step["dir"] or "empty", step["name"] + " dir"), exist_ok=True)
        elif op == "rmdir":
            empty = [d for d in self.dirs(side) if not os.listdir(os.path.join(top, d))]
            if empty:
                os.rmdir(os.path.join(top, self.pick(empty, step["pick"])))
        elif op == "many":
            for i in range(self.rng.randint(20, 200)):
                self.write(side, os.path.join("many", "f%03d.txt" % i), self.rng.randint(0, 300), "many")

    def sync(self, expect_ok=False):
        r = self.nimbrell("sync", "Sync", "--wait")
        self.stats["syncs"] += 1
        if r.returncode == 0:
            self.written = {"local": {}, "remote": {}}
        elif expect_ok:
            raise Failure("sync failed: " + r.stdout + r.stderr)
        return r.returncode == 0

    def interrupt(self, op, delay):
        if op in ("diskfull",) and not self.mounted:
            op = "kill"
        if op in ("unmount", "away"):
            return self.local_away(op)
        if op == "diskfull":
            filler = os.path.join(self.disk, "filler")
            try:
                with open(filler, "wb") as f:
                    while True:
                        f.write(b"\0" * (1 << 20))
            except OSError:
                pass
            self.write("remote", "after-full.bin", 3_000_000, "diskfull")
            self.sync()
            os.remove(filler)
            return
        run = subprocess.Popen([self.program, "sync", "Sync", "--wait"], env=self.env, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
        time.sleep(delay)
        if op in ("term", "kill"):
            self.stop_service(signal.SIGTERM if op == "term" else signal.SIGKILL)
            run.wait(300)
            # A killed instance's rclone ends at its next write, or runs to its end.
            self.start_service()
        elif op == "killrclone":
            for pid in self.bisyncs():
                os.kill(pid, signal.SIGKILL)
            run.wait(300)
        elif op == "server":
            self.stop_server()
            time.sleep(self.rng.uniform(0, 2))
            self.start_server()
            run.wait(300)

    def local_away(self, how):
        """The local folder goes (unmounted: an empty mount point; or renamed away), a run tries, it comes back."""
        away = self.local + ".away"
        # Lazily, as a drive pulled out: a run may still hold files open in it.
        if how == "unmount" and self.mounted:
            subprocess.run(["umount", "--lazy", self.local], check=True)
        elif self.mounted:
            subprocess.run(["umount", "--lazy", self.local], check=True)
            os.rename(self.local, away)
        else:
            os.rename(self.local, away)
        # What the folder holds once gone (a run going on may have written up to then); a
        # transfer it cut short may leave rclone's temporary file in it.
        before = {p: h for p, h in tree(self.disk + "/Sync" if self.mounted else away).items()
                  if not p.endswith(".partial")}
        self.sync()
        time.sleep(0.3)
        # Invariant 5: nothing refilled the empty or missing folder.
        self.stats["checks"] += 1
        if os.path.exists(self.local) and os.listdir(self.local):
            raise Failure("a run filled the %s local folder: %s" % ("unmounted" if how == "unmount" else "missing",
                                                                      os.listdir(self.local)[:5]))
        if os.path.exists(away):
            os.rename(away, self.local)
        if self.mounted:
            subprocess.run(["mount", "--bind", self.disk + "/Sync", self.local], check=True)
        after = {p: h for p, h in tree(self.local).items() if not p.endswith(".partial")}
        if after != before:
            changed = sorted(p for p in set(before) | set(after) if before.get(p) != after.get(p))
            raise Failure("the local folder changed while it was away: %s" % changed[:5])

    # -- the end -----------------------------------------------------------
    def quiesce(self):
        if not self.service or self.service.poll() is not None:
            self.start_service()
        self.nimbrell("resume", "Sync")
        # Everything syncs again: what changed on either side while left out must agree now.
        if self.skipped and self.nimbrell("folders", "edit", "Sync", "--unskip", "sub").returncode == 0:
            self.skipped = False
        for attempt in range(12):
            if self.sync():
                return attempt
            status = json.loads(self.nimbrell("status", "--json", "Sync").stdout or "{}")
            kinds = {p.get("kind") for f in status.get("folders", []) for p in f.get("problems", [])}
            if "conflictPolicyRejected" in kinds:  # this rclone's bisync lacks the policy: Edit Folder
                self.policy = "keepBoth"
                if self.nimbrell("folders", "edit", "Sync", "--conflict", "keepBoth").returncode == 0:
                    continue
            if kinds & {"needsResync", "tooManyDeletes", "allFilesChanged", "emptySide"}:
                self.stats["reviews"] += 1
                if self.nimbrell("review", "Sync", "--apply").returncode == 0:
                    continue
            time.sleep(1 + attempt)
        raise Failure("no successful sync after 12 tries: " + json.dumps(status)[:2000])

    def replaced_by_its_run(self, h):
        """A write that landed while a bisync was already copying onto the same file on that side.

        bisync lists both sides first and copies later, and rclone's copy replaces what it finds
        without comparing it to that listing: a write made in between is overwritten, also a file
        made here that was not yet there when the run listed this side (the run's copy is "new"),
        or the copy of a conflict's loser that the run renamed just before the write.
        Such a content counts as raced (reported), not lost, when the run's activity shows the file
        replaced on that side within seconds after the write.
        """
        if h not in self.during_run:
            return False
        side, rel, written = self.during_run[h]
        try:
            with open(self.home + "/.local/share/nimbrell/activity.jsonl", encoding="utf-8") as f:
                records = [json.loads(line) for line in f]
        except (OSError, ValueError):
            return False
        # What the run did at rel on that side: copied onto it or deleted it, or settled a conflict
        # there by renaming that side's copy and putting the other side's in its place.
        return any(r.get("path") == rel and (r.get("on") == side and r.get("action") in ("new", "updated", "deleted")
                                             or "conflict" in r and r.get("renamedOn") == side)
                   and 0 <= datetime.fromisoformat(r["time"]).timestamp() - written < 10 for r in records)

    def check(self):
        local, remote = tree(self.local), tree(self.remote_dir)
        # 2. agreement
        self.stats["checks"] += 1
        diff = sorted(set(p for p in set(local) | set(remote) if local.get(p) != remote.get(p)))
        # (A transfer killed mid-way leaves rclone's temporary file where it went: not synced, not the user's.)
        if [p for p in diff if "conflict" not in p and not re.search(r"\.[0-9a-f]{8}\.partial$", p)]:
            raise Failure("the sides differ after a successful sync: %s" % diff[:10])
        # 1. nothing lost
        self.stats["checks"] += 1
        present = set(local.values()) | set(remote.values())
        # Kept files: "keep removed", and what a reviewed resync replaced.
        present |= set(tree(self.home + "/.local/share/nimbrell/removed", skip=()).values())
        present |= set(tree(os.path.join(self.remote_dir, ".nimbrell-removed"), skip=()).values())
        lost = [h for h in self.must_keep if h not in present and h not in self.superseded and h not in self.loser_ok]
        raced = [h for h in lost if self.replaced_by_its_run(h)]
        self.stats["raced"] += len(raced)
        lost = [self.must_keep[h] for h in lost if h not in raced]
        if lost:
            raise Failure("lost %d file contents, last written by: %s" % (len(lost), lost[:10]))
        # 3. clean state
        self.stats["checks"] += 1
        work = self.home + "/.config/rclone/bisync_workdir"
        locks = [n for n in os.listdir(work) if n.endswith(".lck")] if os.path.isdir(work) else []
        if locks:
            raise Failure("lock files left: %s" % locks)
        status = json.loads(self.nimbrell("status", "--json").stdout)
        folders = status.get("folders", [])
        if len(folders) != 1 or folders[0].get("status") == "syncing" or status.get("storeProblem"):
            raise Failure("state after the end: %s" % json.dumps(status)[:2000])
        if self.bisyncs():
            raise Failure("rclone still running after the end")
        # 4. one run per pair
        self.stats["checks"] += 1
        if self.overlap:
            raise Failure("two bisyncs of the pair ran at once (%d samples)" % self.overlap)

    def run(self):
        try:
            self.setup()
            for i, step in enumerate(self.steps):
                self.trace("step %d %s" % (i, json.dumps(step, ensure_ascii=False)))
                if self.verbose:
                    print("  step %d %s" % (i, json.dumps(step, ensure_ascii=False)), flush=True)
                try:
                    self.run_step(step)
                except FileNotFoundError:
                    pass  # a run renamed or removed the file the user was about to touch
                self.stats["steps"] += 1
            self.quiesce()
            self.check()
            self.stats["checks"] += 1  # 5: checked at each time the folder went away
            return None
        except (Failure, subprocess.SubprocessError, OSError) as e:
            log = ""
            if self.verbose and os.path.exists(os.path.join(self.dir, "service.log")):
                log = "\n  service log:\n" + "".join(open(os.path.join(self.dir, "service.log"), errors="replace").readlines()[-60:])
            self.failed = True
            return "%s: %s%s" % (type(e).__name__, e, log)
        finally:
            self.teardown()
            if os.environ.get("TORTURE_KEEP") and self.failed:
                print("  kept for a look: " + self.dir, flush=True)
            else:
                shutil.rmtree(self.dir, ignore_errors=True)


# Passes each call to the real rclone and logs its arguments and output into the episode's directory
# ($HOME/..), tagged with the call's process id; the service's own questions are passed unlogged.
RCLONE_LOGGER = """#!/bin/bash
case "$1" in serve|obscure|version|listremotes|config) exec %(real)s "$@";; esac
log="$HOME/../rclone.log"
echo "=== $$ $(date +%%T.%%N) ARGS: $*" >> "$log"
exec %(real)s "$@" > >(tee >(sed -u "s/^/$$ o /" >> "$log")) 2> >(tee >(sed -u "s/^/$$ e /" >> "$log") >&2)
"""


def logging_install(program, rclone):
    """A copy of the program (also frozen against rebuilds) whose rclone logs every call it runs."""
    top = tempfile.mkdtemp(prefix="torture-install-")
    os.makedirs(top + "/bin")
    os.makedirs(top + "/libexec/nimbrell")
    shutil.copy2(program, top + "/bin/")
    shutil.copy2(os.path.join(os.path.dirname(os.path.dirname(program)), "libexec/nimbrell/nimbrell"),
                 top + "/libexec/nimbrell/")
    shutil.copy2(rclone, top + "/rclone.real")
    with open(top + "/libexec/nimbrell/rclone", "w") as f:
        f.write(RCLONE_LOGGER % {"real": shlex.quote(top + "/rclone.real")})
    os.chmod(top + "/libexec/nimbrell/rclone", 0o755)
    return top, top + "/bin/nimbrell", top + "/rclone.real"


def episode(seed, remote, steps, args, stats):
    return Episode(seed, remote, steps, args.program, args.rclone, stats, args.verbose).run()


def failure_kind(error):
    """"Failure: lost 3 file contents, ..." -> "Failure: lost N file contents": what a shrunk list must still show."""
    return re.sub(r"\d+", "N", error.split(",")[0].split("\n")[0]) if error else None


def shrink(seed, remote, steps, args, error):
    """Removes chunks of steps while the episode still fails the same way."""
    chunk = len(steps) // 2
    tries = 0
    while chunk >= 1 and tries < args.shrink_tries:
        i, changed = 0, False
        while i < len(steps) and tries < args.shrink_tries:
            candidate = steps[:i] + steps[i + chunk:]
            tries += 1
            if candidate and failure_kind(episode(seed, remote, candidate, args, new_stats())) == failure_kind(error):
                steps, changed = candidate, True
            else:
                i += chunk
        if not changed:
            chunk //= 2
    return steps


def new_stats():
    return dict.fromkeys(["episodes", "interrupted", "steps", "interruptions", "files", "syncs", "reviews", "checks",
                          "raced", "failures"], 0)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--episodes", type=int)
    ap.add_argument("--minutes", type=float)
    ap.add_argument("--seed", action="append", help="replay these seeds (repeatable); SEED:REMOTE on that remote alone")
    ap.add_argument("--remote", choices=["local", "webdav", "sftp", "all"], default="all")
    ap.add_argument("--program", default=os.path.join(ROOT, "build/bin/nimbrell"))
    ap.add_argument("--rclone", default=os.path.join(ROOT, "build/libexec/nimbrell/rclone"))
    ap.add_argument("--steps", help="replay this step list (JSON, as a failure prints it) with the one --seed")
    ap.add_argument("--shrink-tries", type=int, default=30)
    ap.add_argument("--choices", action="store_true",
                    help="also leave a directory out of the sync and take it back now and then (a second random stream)")
    ap.add_argument("--jobs", type=int, default=1, help="episodes at once")
    ap.add_argument("--verbose", action="store_true")
    ap.add_argument("--log-rclone", action="store_true",
                    help="log every rclone call and its output into rclone.log of the episode (kept with TORTURE_KEEP=1)")
    args = ap.parse_args()
    if os.geteuid() == 0 and os.environ.get("TORTURE_NAMESPACE") != "1" and shutil.which("unshare") \
            and subprocess.run(["unshare", "--mount", "--propagation", "private", "true"]).returncode == 0:
        # A private mount namespace: the tmpfs and bind mounts vanish with us.
        os.execvpe("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable] + sys.argv,
                   dict(os.environ, TORTURE_NAMESPACE="1"))
    remotes = ["local", "webdav", "sftp"] if args.remote == "all" else [args.remote]
    # Each replay is a (seed, remote) pair: SEED on each remote asked for, SEED:REMOTE on that one.
    seeds = [(int(seed), [only] if only else remotes)
             for seed, _, only in (text.partition(":") for text in args.seed or [])]
    replays = [(seed, remote) for seed, on in seeds for remote in on]
    if any(remote not in ("local", "webdav", "sftp") for _, remote in replays):
        ap.error("--seed SEED:REMOTE takes local, webdav or sftp")
    if args.log_rclone:
        install, args.program, args.rclone = logging_install(args.program, args.rclone)
        atexit.register(shutil.rmtree, install, True)
    fresh = not seeds
    if fresh:
        start = random.SystemRandom().randrange(1 << 31)
        print("first new seed: %d" % start, flush=True)
    stats, began, counter, lock = new_stats(), time.time(), itertools.count(), threading.Lock()
    limit = args.episodes if args.episodes is not None else (len(replays) if seeds else None)

    def worker():
        while True:
            with lock:
                n = next(counter)
            if limit is not None and n >= limit:
                return
            if args.minutes is not None and time.time() - began > args.minutes * 60:
                return
            seed, remote = (start + n // len(remotes), remotes[n % len(remotes)]) if fresh else replays[n % len(replays)]
            steps = json.loads(args.steps) if args.steps else step_list(seed, remote, args.choices)
            t, mine = time.time(), new_stats()
            error = episode(seed, remote, steps, args, mine)
            lines = ["episode %d seed %d %s: %d steps, %.1f s, %s" % (n + 1, seed, remote, len(steps), time.time() - t,
                                                                    "ok" if not error else "FAILED")]
            if error:
                mine["failures"] += 1
                lines.append("  " + error.replace("\n", "\n  "))
                small = shrink(seed, remote, steps, args, error)
                lines.append("  replay: scripts/torture --remote %s --seed %d%s" % (remote, seed, " --choices" if args.choices else ""))
                if small != steps:
                    lines.append("  shrunk to %d steps (--steps): %s" % (len(small), json.dumps(small, ensure_ascii=False)))
            with lock:
                for key, value in mine.items():
                    stats[key] += value
                stats["episodes"] += 1
                stats["interrupted"] += mine["interruptions"] > 0
                print("\n".join(lines), flush=True)

    # Episodes share nothing but the machine: each has its own HOME, folder, server and port.
    threads = [threading.Thread(target=worker) for _ in range(max(1, args.jobs))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print("episodes %d (%d with interruptions), steps %d, interruptions %d, files touched %d, syncs %d, reviews %d, "
          "invariant checks %d, raced writes %d, failures %d, %.0f s"
          % (stats["episodes"], stats["interrupted"], stats["steps"], stats["interruptions"], stats["files"], stats["syncs"],
             stats["reviews"], stats["checks"], stats["raced"], stats["failures"], time.time() - began))
    return 1 if stats["failures"] else 0


if __name__ == "__main__":
    sys.exit(main())
