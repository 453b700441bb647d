#!/usr/bin/python3
"""A notification server for tests: owns org.freedesktop.Notifications on the session bus,
appends "title | body | action keys | desktop-entry hint" per notification to FILE (line breaks
in the body as "\\n"), and with --invoke-first-action answers each at once with its first
action. Prints "ready" once it owns the name, and exits 1 when it cannot or loses it."""
import itertools
import sys

from gi.repository import Gio, GLib

PATH, NAME = "/org/freedesktop/Notifications", "org.freedesktop.Notifications"
XML = f"""<node><interface name="{NAME}">
<method name="GetCapabilities"><arg type="as" direction="out"/></method>
<method name="Notify"><arg type="s"/><arg type="u"/><arg type="s"/><arg type="s"/><arg type="s"/>
<arg type="as"/><arg type="a{{sv}}"/><arg type="i"/><arg type="u" direction="out"/></method>
<signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
<signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal></interface></node>"""
ids = itertools.count(1)


def called(bus, _sender, _path, _iface, method, args, invocation):
    if method == "GetCapabilities":
        return invocation.return_value(GLib.Variant("(as)", (["actions", "body"],)))
    _, _, _, summary, body, actions, hints, _ = args.unpack()
    keys, nid = actions[::2], next(ids)
    invocation.return_value(GLib.Variant("(u)", (nid,)))  # sent before the signals below
    if "--invoke-first-action" in sys.argv and keys:
        bus.emit_signal(None, PATH, NAME, "ActionInvoked", GLib.Variant("(us)", (nid, keys[0])))
        bus.emit_signal(None, PATH, NAME, "NotificationClosed", GLib.Variant("(uu)", (nid, 2)))
    bus.flush_sync(None)  # a test that sees the line may kill this server: the answers are out
    with open(sys.argv[1], "a", encoding="utf-8") as out:
        print(summary, body.replace("\n", "\\n"), ",".join(keys),
              hints.get("desktop-entry", ""), sep=" | ", file=out)


loop, session = GLib.MainLoop(), Gio.bus_get_sync(Gio.BusType.SESSION)
session.register_object(PATH, Gio.DBusNodeInfo.new_for_xml(XML).interfaces[0], called)
Gio.bus_own_name_on_connection(session, NAME, Gio.BusNameOwnerFlags.NONE,
                               lambda *_: print("ready", flush=True), lambda *_: loop.quit())
loop.run()
sys.exit("notification_recorder: the name is not this server's")
