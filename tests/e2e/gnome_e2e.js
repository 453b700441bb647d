// A test-only shell extension: Eval on (unsafe mode), and `e2e` for what the tests read and click.
const { Clutter } = imports.gi;
const Main = imports.ui.main;
const { PopupSeparatorMenuItem } = imports.ui.popupMenu;
let pointer = null, keyboard = null;
const device = type => Clutter.get_default_backend().get_default_seat().create_virtual_device(type);

// The indicator the tray extension put in the top bar for our item, when it is drawn.
const indicator = () => Object.values(Main.panel.statusArea).find(i =>
    i?._indicator?.title === 'Corvanta Monitor' && i.visible && i.is_mapped());
const items = () => indicator()?.menu._getMenuItems().filter(i => i.visible) ?? [];

globalThis.e2e = {
    indicator,
    ready: () => indicator()?._menuClient?.isReady,
    isOpen: () => indicator()?.menu.isOpen,
    // One line per item, as sni_client.py's layout prints them (without check marks).
    menu: () => items().map(i => i instanceof PopupSeparatorMenuItem ? '---'
        : i.label.text + (i.getSensitive() ? '' : ' [disabled]')).join('\n'),
    // A click through a virtual pointer: on the indicator, or on the item labelled so.
    click(label, button = Clutter.BUTTON_PRIMARY) {
        const actor = label ? items().find(i => i.label?.text === label) : indicator();
        const [x, y] = actor.get_transformed_position(), [w, h] = actor.get_transformed_size();
        pointer ??= device(Clutter.InputDeviceType.POINTER_DEVICE);
        pointer.notify_absolute_motion(Clutter.CURRENT_TIME, x + w / 2, y + h / 2);
        for (const state of [Clutter.ButtonState.PRESSED, Clutter.ButtonState.RELEASED])
            pointer.notify_button(Clutter.CURRENT_TIME, button, state);
        return true;
    },
    // A key (Return, Escape) to the first confirmation, brought to the front for it.
    key(name) {
        globalThis.e2e.dialogs()[0]?.activate(global.get_current_time());
        keyboard ??= device(Clutter.InputDeviceType.KEYBOARD_DEVICE);
        for (const state of [Clutter.KeyState.PRESSED, Clutter.KeyState.RELEASED])
            keyboard.notify_keyval(Clutter.CURRENT_TIME, Clutter[`KEY_${name}`], state);
        return true;
    },
    dialogs: () => global.display.list_all_windows().filter(w => w.get_title() === 'Corvanta Monitor'),
    // What applications said; the shell's own notices (unsafe mode, root) are left out.
    notifications: () => Main.messageTray.getSources()
        .filter(s => s.constructor.name !== 'SystemNotificationSource').flatMap(s => s.notifications)
        .map(n => `${n.title} | ${n.bannerBodyText}`).join('\n'),
};

function init() {}
function enable() { global.context.unsafe_mode = true; }
function disable() {}
