#!/usr/bin/python3
"""The tray host's side of a StatusNotifierItem: item | prop SERVICE NAME... | layout SERVICE |
find SERVICE LABEL | click SERVICE LABEL. `layout` is one raw GetLayout call; find and click go
through libdbusmenu-glib, as hosts do. Exits 1 on failure or a timeout of 5 s."""
import sys
import time

import gi

gi.require_version("Dbusmenu", "0.4")
from gi.repository import Dbusmenu, Gio, GLib  # noqa: E402

WATCHER = "org.kde.StatusNotifierWatcher"


def call(service, path, iface, method, args):
    bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
    return bus.call_sync(service, path, iface, method, args, None, 0, 5000, None).unpack()


def prop(service, name, path="/StatusNotifierItem", iface="org.kde.StatusNotifierItem"):
    return call(service, path, "org.freedesktop.DBus.Properties", "Get",
                GLib.Variant("(ss)", (iface, name)))[0]


def layout(service):
    """The items' labels, "[disabled]" and a checkmark's "[on]"/"[off]"; "---" for separators."""
    _, (_, _, children) = call(service, prop(service, "Menu"), "com.canonical.dbusmenu",
                               "GetLayout", GLib.Variant("(iias)", (0, -1, [])))
    for _, item, _ in children:
        line = "---" if item.get("type") == "separator" else item.get("label", "?")
        line += "" if item.get("enabled", True) or line == "---" else " [disabled]"
        if item.get("toggle-type") == "checkmark":
            line += " [on]" if item.get("toggle-state") == 1 else " [off]"
        print(line)


def run(loop, seconds):
    timer = GLib.timeout_add(int(seconds * 1000) + 1, loop.quit)
    loop.run()
    GLib.source_remove(timer)


def find_item(service, label, seconds=5):
    client, loop = Dbusmenu.Client.new(service, prop(service, "Menu")), GLib.MainLoop()

    def match():
        root = client.get_root()
        return next((item for item in (root.get_children() if root else [])
                     if item.property_get("label") == label), None)

    client.connect("layout-updated", lambda *_: loop.quit())
    client.connect("new-menuitem",
                   lambda _c, item: item.connect("property-changed", lambda *_: loop.quit()))
    deadline = time.monotonic() + seconds
    while (found := match()) is None and (left := deadline - time.monotonic()) > 0:
        run(loop, left)
    if found is None:
        sys.exit(f"sni_client: no item labelled {label!r} within {seconds} s")
    return client, loop, found


def click(client, loop, item):
    answer = []

    def result(_client, target, name, _data, _timestamp, error):
        if target.get_id() == item.get_id() and name == "clicked":
            answer.append(error)
            loop.quit()
    client.connect("event-result", result)
    item.handle_event("clicked", GLib.Variant("i", 0), int(time.time()))
    run(loop, 5)
    if not answer or answer[0]:
        sys.exit(f"sni_client: the click was not answered: {answer}")


def main(command, *args):
    if command == "item":
        items = prop(WATCHER, "RegisteredStatusNotifierItems", "/StatusNotifierWatcher", WATCHER)
        if len(items) != 1:
            sys.exit(f"sni_client: {len(items)} items registered")
        print(items[0].split("/")[0].rstrip("@"))  # "service/path" or "service@/path"
    elif command == "prop":
        print(*(prop(args[0], name) for name in args[1:]), sep="\n")
    elif command == "layout":
        layout(*args)
    elif command in ("find", "click"):
        found = find_item(*args)
        if command == "click":
            click(*found)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(*sys.argv[1:])
