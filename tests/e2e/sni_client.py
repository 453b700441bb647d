#!/usr/bin/python3
"""Looks at a StatusNotifierItem and its menu from the host's side of the session bus.

Usage: sni_client.py items
       sni_client.py props SERVICE PATH
       sni_client.py layout SERVICE MENUPATH
       sni_client.py menu SERVICE MENUPATH
       sni_client.py wait-label [--open] SERVICE MENUPATH REGEX TIMEOUT
       sni_client.py click SERVICE MENUPATH LABEL_REGEX
       sni_client.py count-signals SERVICE SECONDS

Prints plain lines; exits 1 on failure or timeout, 2 on wrong usage. `layout` is a raw
call; `menu`, `wait-label` and `click` go through libdbusmenu-glib as a tray host does.
"""
import re
import sys
import time

import gi

gi.require_version('Dbusmenu', '0.4')
from gi.repository import Dbusmenu, Gio, GLib  # noqa: E402

WATCHER = 'org.kde.StatusNotifierWatcher'
ITEM = 'org.kde.StatusNotifierItem'
MENU = 'com.canonical.dbusmenu'
TIMEOUT_MS = 5000
QUIET_MS = 300  # a menu counts as settled once no update came for this long
PROPS = ('Id', 'Category', 'Title', 'Status', 'IconName', 'IconPixmap', 'ItemIsMenu', 'Menu')


class Failure(Exception):
    pass


def bus():
    return Gio.bus_get_sync(Gio.BusType.SESSION, None)


def call(service, path, iface, method, args, reply):
    try:
        return bus().call_sync(service, path, iface, method, args, GLib.VariantType(reply),
                               Gio.DBusCallFlags.NONE, TIMEOUT_MS, None).unpack()
    except GLib.Error as e:
        raise Failure(f'{method} on {service} {path}: {e.message}') from None


def show(value):
    if isinstance(value, bool):
        return str(value).lower()
    return str(value)


def items():
    (registered,) = call(WATCHER, '/StatusNotifierWatcher', 'org.freedesktop.DBus.Properties',
                         'Get', GLib.Variant('(ss)', (WATCHER, 'RegisteredStatusNotifierItems')),
                         '(v)')
    for entry in registered:
        print(entry)


def props(service, path):
    (values,) = call(service, path, 'org.freedesktop.DBus.Properties', 'GetAll',
                     GLib.Variant('(s)', (ITEM,)), '(a{sv})')
    for name in PROPS:
        value = values.get(name, '<absent>')
        if name == 'IconPixmap' and name in values:
            value = ','.join(f'{w}x{h}' for w, h, _ in value) or '<empty>'
        print(f'{name}={show(value)}')


def raw_fields(props):
    return {
        'type': props.get('type', 'standard'),
        'label': props.get('label', ''),
        'enabled': props.get('enabled', True),
        'visible': props.get('visible', True),
        'toggle-type': props.get('toggle-type', ''),
        'toggle-state': props.get('toggle-state', -1),
    }


def print_item(item_id, parent, fields):
    print(f'id={item_id}\tparent={parent}\t' +
          '\t'.join(f'{k}={show(v)}' for k, v in fields.items()))


def layout(service, path):
    revision, root = call(service, path, MENU, 'GetLayout',
                          GLib.Variant('(iias)', (0, -1, [])), '(u(ia{sv}av))')
    print(f'revision={revision}')

    def walk(node, parent):
        item_id, item_props, children = node
        if parent is not None:
            print_item(item_id, parent, raw_fields(item_props))
        for child in children:
            walk(child, item_id)

    walk(root, None)


class Menu:
    """A libdbusmenu-glib client, driven by its signals under a bounded main loop."""

    def __init__(self, service, path):
        self.loop = GLib.MainLoop()
        self.client = Dbusmenu.Client.new(service, path)
        self.on_change = None
        self.client.connect('layout-updated', self.changed)
        self.client.connect('root-changed', self.changed)
        self.client.connect('new-menuitem', self.watch_item)

    def watch_item(self, _client, item):
        item.connect('property-changed', self.changed)

    def changed(self, *_):
        if self.on_change:
            self.on_change()

    def until(self, check, seconds, what):
        """Runs the loop until check() gives something other than None, and returns it;
        check runs now and whenever the loop is woken: by a change the client reports, or
        by a callback that quits the loop."""
        result = check()
        if result is None:
            expired = []

            def timed_out():
                expired.append(True)
                self.loop.quit()
                return GLib.SOURCE_REMOVE
            timer = GLib.timeout_add(int(seconds * 1000), timed_out)
            self.on_change = self.loop.quit
            while result is None and not expired:
                self.loop.run()
                result = check()
            self.on_change = None
            if result is None:
                raise Failure(f'timed out waiting for {what}')
            if not expired:
                GLib.source_remove(timer)
        if isinstance(result, Failure):
            raise result
        return result

    def root(self):
        """The root once the client has fetched the first layout, empty or not."""
        return self.until(self.client.get_root, TIMEOUT_MS / 1000, 'the menu')

    def settle(self):
        """Until no update came for QUIET_MS, so that the client's refetch is done."""
        quiet = [False]
        timer = [None]

        def expire():
            quiet[0], timer[0] = True, None
            self.loop.quit()
            return GLib.SOURCE_REMOVE

        def check():
            if quiet[0]:
                return True
            if timer[0] is not None:
                GLib.source_remove(timer[0])
            timer[0] = GLib.timeout_add(QUIET_MS, expire)
            return None
        self.until(check, TIMEOUT_MS / 1000, 'the menu to settle')

    def open(self):
        """What a host does as it shows the menu: about-to-show on the root, then the
        refetch of what changed."""
        self.root().send_about_to_show(None, None)  # its callback is not introspectable
        # A ping queued behind it is answered after it, and after the signals it caused.
        pinged = []
        bus().call(self.client.props.dbus_name, '/', 'org.freedesktop.DBus.Peer', 'Ping', None,
                   None, Gio.DBusCallFlags.NONE, TIMEOUT_MS, None,
                   lambda *_: (pinged.append(True), self.loop.quit()))
        self.until(lambda: pinged[0] if pinged else None, TIMEOUT_MS / 1000,
                   'the item to answer')
        self.settle()

    def items(self, root=None, parent=0):
        for item in (root or self.client.get_root()).get_children():
            yield item, parent
            yield from self.items(item, item.get_id())

    def find(self, regex):
        pattern = re.compile(regex)
        if self.client.get_root() is None:
            return None
        return next((item for item, _ in self.items()
                     if pattern.search(item.property_get('label') or '')), None)


def fields(item):
    toggle_state = item.property_get_int('toggle-state') if item.property_exist(
        'toggle-state') else -1
    return {
        'type': item.property_get('type') or 'standard',
        'label': item.property_get('label') or '',
        'enabled': item.property_get_bool('enabled'),
        'visible': item.property_get_bool('visible'),
        'toggle-type': item.property_get('toggle-type') or '',
        'toggle-state': toggle_state,
    }


def menu(service, path):
    client = Menu(service, path)
    client.open()
    for item, parent in client.items():
        print_item(item.get_id(), parent, fields(item))


def wait_label(args):
    opened = args[:1] == ['--open']
    args = args[1:] if opened else args
    if len(args) != 4:
        usage()
    service, path, regex, seconds = args[0], args[1], args[2], float(args[3])
    client = Menu(service, path)
    if opened:
        client.open()
    item = client.until(lambda: client.find(regex), seconds, f'a label matching {regex!r}')
    parent = item.get_parent()
    print_item(item.get_id(), parent.get_id() if parent else 0, fields(item))


def click(service, path, regex):
    client = Menu(service, path)
    client.open()
    item = client.find(regex)
    if item is None:
        raise Failure(f'no item labelled like {regex!r}')
    answer = []

    def result(_client, target, name, _data, _timestamp, error):
        if target.get_id() == item.get_id() and name == 'clicked':
            answer.append(Failure(f'clicked: {error.message}') if error else True)
            client.loop.quit()
    client.client.connect('event-result', result)
    item.handle_event('clicked', GLib.Variant('i', 0), int(time.time()))
    client.until(lambda: answer[0] if answer else None, TIMEOUT_MS / 1000,
                 'the clicked event to be answered')
    print(f'clicked id={item.get_id()}\tlabel={item.property_get("label")}')


def count_signals(service, seconds):
    connection = bus()
    counts = {'LayoutUpdated': 0, 'ItemsPropertiesUpdated': 0}

    def seen(_conn, _sender, _path, _iface, member, _params):
        counts[member] = counts.get(member, 0) + 1
    connection.signal_subscribe(service, MENU, None, None, None, Gio.DBusSignalFlags.NONE, seen)
    # Measuring over a fixed span is the point here.
    loop = GLib.MainLoop()
    GLib.timeout_add(int(float(seconds) * 1000), loop.quit)
    loop.run()
    for member, count in counts.items():
        print(f'{member} {count}')


def usage():
    sys.stderr.write(__doc__.split('\n\n')[1] + '\n')
    sys.exit(2)


COMMANDS = {
    'items': (0, items),
    'props': (2, props),
    'layout': (2, layout),
    'menu': (2, menu),
    'click': (3, click),
    'count-signals': (2, count_signals),
}


def main(argv):
    if argv[:1] == ['wait-label']:
        wait_label(argv[1:])
        return
    if not argv or argv[0] not in COMMANDS or len(argv) - 1 != COMMANDS[argv[0]][0]:
        usage()
    COMMANDS[argv[0]][1](*argv[1:])


if __name__ == '__main__':
    try:
        main(sys.argv[1:])
    except Failure as e:
        sys.stderr.write(f'sni_client: {e}\n')
        sys.exit(1)
    except ValueError as e:
        sys.stderr.write(f'sni_client: {e}\n')
        sys.exit(2)
