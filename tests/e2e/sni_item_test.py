#!/usr/bin/python3
"""The monitor's StatusNotifierItem as a host that caches the menu sees it.

Usage: sni_item_test.py CORVANTA_MONITOR CORVANTA_STANDIN

On a private session bus this script is the tray host's watcher and the
notification server, which appear only after the program has started. Its
first call to the item, as soon as the item registers, is GetLayout: no
AboutToShow, no other call before it. The layout must then already be the
whole menu. Afterwards, with no menu ever opened,
a server started and stopped from a terminal shows in the exported menu and
one killed from outside is notified; then the same with the host's menu
"open" (AboutToShow sent, never a "closed").
"""
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

WATCHER_XML = """
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
  </interface>
  <interface name="org.freedesktop.Notifications">
    <method name="Notify">
      <arg type="s" direction="in"/><arg type="u" direction="in"/>
      <arg type="s" direction="in"/><arg type="s" direction="in"/>
      <arg type="s" direction="in"/><arg type="as" direction="in"/>
      <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
      <arg type="u" direction="out"/>
    </method>
    <method name="GetCapabilities"><arg type="as" direction="out"/></method>
    <method name="GetServerInformation">
      <arg type="s" direction="out"/><arg type="s" direction="out"/>
      <arg type="s" direction="out"/><arg type="s" direction="out"/>
    </method>
    <method name="CloseNotification"><arg type="u" direction="in"/></method>
  </interface>
</node>"""

failures = []


def check(condition, what):
    print(("ok   " if condition else "FAIL ") + what, flush=True)
    if not condition:
        failures.append(what)


class Host:
    def __init__(self, bus):
        self.bus = bus
        self.loop = GLib.MainLoop()
        self.item = None  # the item's unique bus name
        self.first_layout = None
        self.notifications = []
        self.layout_updates = 0
        self.property_updates = 0
        node = Gio.DBusNodeInfo.new_for_xml(WATCHER_XML)
        for iface, path in ((node.interfaces[0], "/StatusNotifierWatcher"),
                            (node.interfaces[1], "/org/freedesktop/Notifications")):
            bus.register_object(path, iface, self.on_call, self.on_property, None)

    def claim_names(self):
        for name in ("org.kde.StatusNotifierWatcher", "org.freedesktop.Notifications"):
            self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "RequestName",
                               GLib.Variant("(su)", (name, 4)), None, Gio.DBusCallFlags.NONE, -1,
                               None)

    def on_property(self, bus, sender, path, iface, name):
        return {"RegisteredStatusNotifierItems": GLib.Variant("as", [self.item] if self.item else []),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                "ProtocolVersion": GLib.Variant("i", 0)}.get(name)

    def on_call(self, bus, sender, path, iface, method, params, invocation):
        if method == "RegisterStatusNotifierItem":
            invocation.return_value(None)
            self.item = sender
            # The first call the item gets.
            self.first_layout = self.layout()
            for signal_name in ("LayoutUpdated", "ItemsPropertiesUpdated"):
                bus.signal_subscribe(sender, "com.canonical.dbusmenu", signal_name, "/MenuBar",
                                     None, Gio.DBusSignalFlags.NONE, self.on_menu_signal)
            self.loop.quit()
        elif method == "Notify":
            self.notifications.append((params[3], params[4], time.monotonic()))
            invocation.return_value(GLib.Variant("(u)", (len(self.notifications),)))
            self.loop.quit()
        elif method == "GetCapabilities":
            invocation.return_value(GLib.Variant("(as)", (["actions", "body"],)))
        elif method == "GetServerInformation":
            invocation.return_value(GLib.Variant("(ssss)", ("test", "test", "1", "1.2")))
        else:
            invocation.return_value(None)

    def on_menu_signal(self, bus, sender, path, iface, name, params):
        if name == "LayoutUpdated":
            self.layout_updates += 1
        else:
            self.property_updates += 1
        self.loop.quit()

    def call(self, path, iface, method, args, signature):
        return self.bus.call_sync(self.item, path, iface, method,
                                  GLib.Variant(signature, args) if signature else None, None,
                                  Gio.DBusCallFlags.NONE, 5000, None).unpack()

    def layout(self):
        revision, (root, props, children) = self.call("/MenuBar", "com.canonical.dbusmenu",
                                                      "GetLayout", (0, -1, []), "(iias)")
        lines = []
        for child_id, child_props, _ in children:
            if child_props.get("type") == "separator":
                lines.append("---")
                continue
            line = child_props.get("label", "?")
            if not child_props.get("enabled", True):
                line += " [disabled]"
            if child_props.get("toggle-type") == "checkmark":
                line += " [on]" if child_props.get("toggle-state") == 1 else " [off]"
            lines.append(line)
        return "\n".join(lines)

    def prop(self, name):
        return self.call("/StatusNotifierItem", "org.freedesktop.DBus.Properties", "Get",
                         ("org.kde.StatusNotifierItem", name), "(ss)")[0]

    def wait_for(self, condition, seconds):
        """Runs the loop until condition() holds or the time is up."""
        deadline = time.monotonic() + seconds
        while not condition():
            left = deadline - time.monotonic()
            if left <= 0:
                return False
            expired = []
            source = GLib.timeout_add(int(left * 1000) + 1,
                                      lambda: expired.append(1) or self.loop.quit())
            self.loop.run()
            if not expired:
                GLib.source_remove(source)
        return True


def wait_for_line(stream, prefix, seconds):
    """Reads `stream` until a line starts with `prefix`; False at its end or
    when the time is up."""
    deadline, text = time.monotonic() + seconds, b""
    while (left := deadline - time.monotonic()) > 0:
        if not select.select([stream], [], [], left)[0]:
            break
        chunk = os.read(stream.fileno(), 4096)
        if not chunk:
            break
        text += chunk
        if any(line.startswith(prefix.encode()) for line in text.splitlines()):
            return True
    return False


def main():
    monitor, standin = os.path.realpath(sys.argv[1]), os.path.realpath(sys.argv[2])
    here = os.path.dirname(os.path.realpath(__file__))
    work = tempfile.mkdtemp(prefix="corvanta-sni.")
    home = os.path.join(work, "installation")
    shutil.copytree(os.path.join(here, "..", "..", "examples", "installation"), home, symlinks=True)
    shutil.copy(standin, os.path.join(home, "bin", "corvanta"))
    os.makedirs(os.path.join(work, "home"))
    bus_process = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                                   stdout=subprocess.PIPE, text=True)
    address = bus_process.stdout.readline().strip()
    env = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=address, QT_QPA_PLATFORM="offscreen",
               HOME=os.path.join(work, "home"), XDG_CONFIG_HOME=os.path.join(work, "config"),
               XDG_RUNTIME_DIR=work, CORVANTA_HOME=home, LANGUAGE="", LC_ALL="C.UTF-8")
    bus = Gio.DBusConnection.new_for_address_sync(
        address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
        Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
    host = Host(bus)
    # The program first, the host later, as when both start with the session:
    # the item moves to the host when it comes.
    tray = subprocess.Popen([monitor], env=env, stderr=subprocess.PIPE)
    check(wait_for_line(tray.stderr, "corvanta-monitor: No system tray found", 30),
          "without a host the program says so")
    threading.Thread(target=shutil.copyfileobj, args=(tray.stderr, sys.stderr.buffer),
                     daemon=True).start()
    host.claim_names()

    def cli(*args):
        return subprocess.run([monitor, *args], env=env, capture_output=True, text=True,
                              timeout=60)

    def label_is(text):
        return lambda: text in host.layout().splitlines()

    try:
        check(host.wait_for(lambda: host.first_layout is not None, 30), "the item registers")
        expected = "\n".join([
            "Start Instance 'analytics'", "Start Default Instance", "---",
            "Open Diagnostic Messages [disabled]", "Open Corvanta Kelvarine [disabled]",
            "View Online Documentation", "---", "Start Corvanta Monitor at Login [off]",
            "Quit Corvanta Monitor"])
        check(host.first_layout == expected,
              "the first GetLayout holds the whole menu:\n" + (host.first_layout or ""))
        check(host.prop("Title") == "Corvanta Monitor", "Title is the program's name")
        check(host.prop("ItemIsMenu") is True, "the item is a menu")
        check(host.prop("Menu") == "/MenuBar", "the menu's path")
        check(len(host.prop("IconPixmap")) > 0, "pixmaps beside the icon name")
        name, path = host.prop("IconName"), host.prop("IconThemePath")
        check(name == "corvanta-monitor-stopped" and
              os.path.isfile(os.path.join(path, name + ".png")),
              f"the themed icon name {name!r} is found in {path!r}")

        for opened in (False, True):
            when = "menu open" if opened else "menu never opened"
            if opened:
                # The same instances as at launch: nothing new to read.
                need_update = host.call("/MenuBar", "com.canonical.dbusmenu", "AboutToShow",
                                        (0,), "(i)")[0]
                check(not need_update, "an opening with nothing changed asks for no new layout")
            layouts, properties = host.layout_updates, host.property_updates
            check(cli("start", "database", "--wait").returncode == 0, "started from a terminal")
            check(host.wait_for(label_is("Stop Default Instance"), 5),
                  f"{when}: the exported menu shows the started server")
            check(host.wait_for(lambda: "Open Corvanta Kelvarine" in host.layout().splitlines(), 5),
                  f"{when}: the console link is enabled")
            check(host.wait_for(lambda: host.property_updates > properties, 5),
                  f"{when}: the change is announced")
            check(host.layout_updates == layouts,
                  f"{when}: a server's change announces its items, not a new layout "
                  f"({host.layout_updates - layouts} layouts)")
            check(cli("stop", "database", "--wait").returncode == 0, "stopped from a terminal")
            check(host.wait_for(label_is("Start Default Instance"), 5),
                  f"{when}: the exported menu shows the stopped server:\n" + host.layout())
            check(host.notifications == [], f"{when}: a clean stop is not notified")

            cli("start", "database", "--wait")
            host.wait_for(label_is("Stop Default Instance"), 5)
            with open(os.path.join(home, "database", "corvanta.lck")) as lock:
                pid = int("".join(c for c in lock.read() if c.isdigit()))
            killed = time.monotonic()
            os.kill(pid, signal.SIGKILL)
            check(host.wait_for(lambda: host.notifications, 10), f"{when}: the kill is notified")
            if host.notifications:
                title, body, at = host.notifications[-1]
                check(title == "Default Instance stopped" and "not known" in body,
                      f"{when}: notification '{title}' / '{body}'")
                print(f"     notified {at - killed:.3f} s after the kill", flush=True)
            check(host.wait_for(label_is("Start Default Instance"), 5),
                  f"{when}: the exported menu shows the killed server stopped")
            host.notifications.clear()
            os.unlink(os.path.join(home, "database", "corvanta.lck"))

        # A new instance: the next opening rebuilds the menu, announced once.
        os.makedirs(os.path.join(home, "zeta"))
        with open(os.path.join(home, "zeta", "corvanta.ini"), "w") as ini:
            ini.write("[database]\n")
        layouts = host.layout_updates
        check(host.call("/MenuBar", "com.canonical.dbusmenu", "AboutToShow", (0,), "(i)")[0],
              "an opening with a new instance asks for a new layout")
        check(host.wait_for(lambda: host.layout_updates > layouts, 5), "the new layout is announced")
        host.wait_for(lambda: "Start Instance 'zeta'" in host.layout().splitlines(), 5)
        check(host.layout_updates - layouts == 1,
              f"one LayoutUpdated for the rebuild ({host.layout_updates - layouts})")

    finally:
        tray.terminate()
        tray.wait(30)
        bus_process.terminate()
        bus_process.wait()
        if failures:
            print("work directory kept: " + work)
        else:
            shutil.rmtree(work, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
