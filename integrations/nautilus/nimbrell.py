# Nimbrell in GNOME Files: an emblem on each file of a sync folder that says
# whether it is synced, and a "Nimbrell" menu on its right click.
#
# The running Nimbrell (its window or `nimbrell --headless`) tells the states
# over its local channel: one subscription that follows the files shown, and
# one short connection for each action. Nothing here polls: the subscription
# brings each change, and the file that tells where Nimbrell listens is
# watched, so a Nimbrell that starts (or starts again) after GNOME Files is
# found at once and every emblem is asked for anew.

import hashlib
import json
import os

import gi

from gi.repository import Gio, GLib, GObject

VERSION = 1
STATES = ("synced", "pending", "syncing", "error", "conflict", "excluded", "paused")
# How many paths one file manager may follow; the oldest are dropped first.
MAX_WATCHED = 50_000


def emblem_for(state):
    """The icon that shows `state` on a file, or None."""
    return "nimbrell-%s-symbolic" % state if state in STATES else None


def config_home():
    path = os.environ.get("XDG_CONFIG_HOME", "")
    return path if os.path.isabs(path) else os.path.join(os.path.expanduser("~"), ".config")


def address_file():
    """The file in which the running Nimbrell of this HOME and configuration
    writes where it listens."""
    home = os.path.expanduser("~").rstrip("/") or "/"
    key = hashlib.sha256(os.fsencode(home) + b"\n" + os.fsencode(config_home())).hexdigest()[:16]
    return os.path.join(config_home(), "nimbrell", "instance-%s.socket" % key)


def socket_path():
    try:
        with open(address_file(), "rb") as address:
            path = os.fsdecode(address.readline(4096).strip())
    except OSError:
        return None
    return path if os.path.isabs(path) else None


def menu_for(path, state, folder_id):
    """The Nimbrell menu of one file or directory: (label, command, fields)
    for each item, the fields being what the channel's command takes."""
    if folder_id is None:
        return []
    items = [
        ("Sync Now", "sync", {"folders": [folder_id]}),
        ("Show in Nimbrell", "open", {"folder": folder_id}),
        ("Copy Share Link", "share", {"path": path}),
        ("Recently Removed…", "open", {"folder": folder_id, "sheet": "removed"}),
    ]
    if state == "conflict" and not os.path.isdir(path):
        items += [
            ("Keep This", "resolve", {"path": path, "choice": "keepThis"}),
            ("Keep Both", "resolve", {"path": path, "choice": "keepBoth"}),
        ]
    return items


def request(command, fields, done):
    """Sends one request to the running Nimbrell; `done` gets its answer, or
    {"ok": False, "error": ...} when none came."""
    path = socket_path()
    if path is None:
        done({"ok": False, "error": "Nimbrell is not running"})
        return
    message = dict(fields, nimbrell=VERSION, command=command)

    def connected(client, result):
        try:
            connection = client.connect_finish(result)
        except GLib.Error:
            done({"ok": False, "error": "Nimbrell is not running"})
            return
        connection.get_output_stream().write_all(json.dumps(message).encode() + b"\n", None)
        lines = Gio.DataInputStream.new(connection.get_input_stream())

        def answered(stream, result):
            try:
                line, _ = stream.read_line_finish_utf8(result)
            except GLib.Error:
                line = None
            connection.close(None)
            try:
                done(json.loads(line) if line else {"ok": False, "error": "Nimbrell did not answer"})
            except ValueError:
                done({"ok": False, "error": "Nimbrell did not answer"})

        lines.read_line_async(GLib.PRIORITY_DEFAULT, None, answered)

    Gio.SocketClient().connect_async(Gio.UnixSocketAddress.new(path), None, connected)


class States:
    """The states of the files a file manager shows, kept up to date by one
    subscription. `changed(paths)` is called with the paths whose state is
    new, or gone (every path's, when Nimbrell quits)."""

    def __init__(self, changed):
        self._changed = changed
        self._states = {}  # path -> state; in the order they were first followed
        self._roots = None  # a folder's directory -> its id; None until Nimbrell says
        self._asked = {}  # paths asked for, not yet followed (an ordered set)
        self._watched = set()  # followed, their first state not come yet
        self._outside = {}  # asked for, in no sync folder (an ordered set)
        self._connection = None
        self._lines = None
        self._flush = 0
        os.makedirs(os.path.dirname(address_file()), mode=0o700, exist_ok=True)
        # Written by each Nimbrell that starts listening.
        self._monitor = Gio.File.new_for_path(address_file()).monitor_file(Gio.FileMonitorFlags.NONE, None)
        self._monitor.connect("changed", lambda *_: self.connect())
        self.connect()

    @property
    def connected(self):
        return self._connection is not None

    def folder_of(self, path):
        """The id of the sync folder that holds `path`, or None."""
        best = None
        for root, folder in (self._roots or {}).items():
            if (path == root or path.startswith(root.rstrip("/") + "/")) and (best is None or len(root) > len(best[0])):
                best = (root, folder)
        return best[1] if best else None

    def state(self, path):
        """The state of `path`, or None when it has none (not in a sync folder)
        or is not known yet: it is then asked for, and `changed` tells."""
        if path in self._states:
            return self._states[path]
        if self._roots is not None and self.folder_of(path) is None:
            _remember(self._outside, path)
            return None
        _remember(self._asked, path)
        if self._roots is not None and not self._flush:
            self._flush = GLib.idle_add(self._watch)
        return None

    def connect(self):
        """Subscribes, unless subscribed already or Nimbrell is not running."""
        path = socket_path()
        if self._connection is not None or path is None:
            return
        try:
            connection = Gio.SocketClient().connect(Gio.UnixSocketAddress.new(path), None)
        except GLib.Error:
            return  # a Nimbrell that has gone; the next one rewrites the address
        self._connection = connection
        self._lines = Gio.DataInputStream.new(connection.get_input_stream())
        self._send({"nimbrell": VERSION, "command": "subscribe", "paths": [], "roots": True})
        self._read()

    def _send(self, message):
        if self._connection is None:
            return
        try:
            self._connection.get_output_stream().write_all(json.dumps(message).encode() + b"\n", None)
        except GLib.Error:
            self._lost()

    def _read(self):
        if self._lines is not None:
            self._lines.read_line_async(GLib.PRIORITY_DEFAULT, None, self._line, self._lines)

    def _line(self, stream, result, lines):
        if lines is not self._lines:
            return  # of a connection since lost
        try:
            line, _ = stream.read_line_finish_utf8(result)
            message = json.loads(line) if line is not None else None
        except (GLib.Error, ValueError):
            message = None
        if not isinstance(message, dict) or not message.get("ok"):
            self._lost()  # gone, or an answer this extension cannot read (another version)
            return
        self._take(message)
        self._read()

    def _take(self, message):
        changed = []
        if "roots" in message:
            self._roots = {root["path"]: root["id"] for root in message["roots"]}
            # Out of every folder now: forgotten. Into one now: asked again.
            for path in [path for path in self._states if self.folder_of(path) is None]:
                del self._states[path]
                changed.append(path)
            for path in [path for path in self._outside if self.folder_of(path) is not None]:
                del self._outside[path]
                changed.append(path)
        for file in message.get("files", []):
            path, state = file.get("path"), file.get("state")
            if path in self._watched or (path in self._states and self._states[path] != state):
                self._watched.discard(path)
                self._states[path] = state
                changed.append(path)
        if self._asked and not self._flush:
            self._flush = GLib.idle_add(self._watch)
        if changed:
            self._changed(changed)

    def _watch(self):
        """Follows the paths asked for since the last time: one line for a
        whole directory's files."""
        self._flush = 0
        paths = [path for path in self._asked if self.folder_of(path) is not None]
        for path in self._asked:
            if path not in paths:
                _remember(self._outside, path)
        self._asked.clear()
        if paths and self._connection is not None:
            self._watched.update(paths)
            self._send({"watch": paths})
        excess = len(self._states) + len(self._watched) - MAX_WATCHED
        if excess > 0:
            dropped = list(self._states)[:excess]
            for path in dropped:
                del self._states[path]
            self._send({"unwatch": dropped})
        return GLib.SOURCE_REMOVE

    def _lost(self):
        """Nimbrell went: no state is known any more, and every emblem goes."""
        if self._connection is None:
            return
        connection, self._connection, self._lines = self._connection, None, None
        connection.close(None)
        gone = list(self._states)
        for path in gone:
            _remember(self._asked, path)  # asked again when Nimbrell comes back
        self._states.clear()
        self._watched.clear()
        self._roots = None
        if gone:
            self._changed(gone)
        # One that started again at once may have written its address already.
        GLib.idle_add(self._reconnect)

    def _reconnect(self):
        self.connect()
        return GLib.SOURCE_REMOVE


def _remember(paths, path):
    """Adds `path` to an ordered set that keeps the newest MAX_WATCHED."""
    paths[path] = None
    if len(paths) > MAX_WATCHED:
        del paths[next(iter(paths))]


def notify(summary, body):
    """A desktop notification, as Nimbrell's own."""
    Gio.bus_get(Gio.BusType.SESSION, None, _notify_on, (summary, body))


def _notify_on(_, result, texts):
    try:
        bus = Gio.bus_get_finish(result)
    except GLib.Error:
        return
    bus.call("org.freedesktop.Notifications", "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
             "Notify", GLib.Variant("(susssasa{sv}i)", ("Nimbrell", 0, "org.nimbrell.Nimbrell", texts[0], texts[1], [], {}, -1)),
             None, Gio.DBusCallFlags.NONE, -1, None, None)


def carry_out(command, fields, copy):
    """What a menu item does: the request, and what the user sees of its
    answer. `copy(text)` puts a share link on the clipboard."""
    def done(answer):
        if not answer.get("ok"):
            error = answer.get("error", "")
            if error == "no window":
                error = "Nimbrell runs here without a window (nimbrell --headless)"
            notify("Nimbrell", error)
        elif command == "share":
            copy(answer["link"])
            notify("Share link copied", answer["link"])
    request(command, fields, done)


try:
    gi.require_version("Nautilus", "4.0")
    gi.require_version("Gdk", "4.0")
    from gi.repository import Gdk, Nautilus
except (ImportError, ValueError):  # not in GNOME Files
    Nautilus = None

if Nautilus is not None:
    def _copy(text):
        display = Gdk.Display.get_default()
        if display is not None:
            display.get_clipboard().set_content(Gdk.ContentProvider.new_for_value(text))

    class NimbrellExtension(GObject.GObject, Nautilus.InfoProvider, Nautilus.MenuProvider):
        def __init__(self):
            super().__init__()
            self._states = States(self._changed)

        def _changed(self, paths):
            for path in paths:
                file = Nautilus.FileInfo.lookup(Gio.File.new_for_path(path))
                if file is not None:
                    file.invalidate_extension_info()

        def update_file_info(self, file):
            location = file.get_location()
            path = location.get_path() if location is not None else None
            emblem = emblem_for(self._states.state(path)) if path else None
            if emblem:
                file.add_emblem(emblem)
            return Nautilus.OperationResult.COMPLETE

        def _menu(self, file, name):
            location = file.get_location()
            path = location.get_path() if location is not None else None
            items = menu_for(path, self._states.state(path), self._states.folder_of(path)) if path else []
            if not items:
                return []
            top = Nautilus.MenuItem(name=name, label="Nimbrell")
            submenu = Nautilus.Menu()
            top.set_submenu(submenu)
            for label, command, fields in items:
                item = Nautilus.MenuItem(name="%s::%s::%s" % (name, command, label), label=label)
                item.connect("activate", lambda _, c=command, f=fields: carry_out(c, f, _copy))
                submenu.append_item(item)
            return [top]

        def get_file_items(self, files):
            return self._menu(files[0], "Nimbrell::File") if len(files) == 1 else []

        def get_background_items(self, folder):
            return self._menu(folder, "Nimbrell::Folder")
