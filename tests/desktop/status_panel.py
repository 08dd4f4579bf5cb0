"""A panel that shows status items of the message bus: its watcher, its host and what they read."""
import os

from gi.repository import Gio, GLib

from windows import PATIENCE, wait_until

WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
INTERFACE = f"""<node><interface name='{WATCHER}'>
<method name='RegisterStatusNotifierItem'><arg type='s' direction='in'/></method>
<method name='RegisterStatusNotifierHost'><arg type='s' direction='in'/></method>
<property name='RegisteredStatusNotifierItems' type='as' access='read'/>
<property name='IsStatusNotifierHostRegistered' type='b' access='read'/>
<property name='ProtocolVersion' type='i' access='read'/>
<signal name='StatusNotifierItemRegistered'><arg type='s'/></signal>
<signal name='StatusNotifierHostRegistered'/>
<signal name='StatusNotifierHostUnregistered'/></interface></node>"""
TIMEOUT = PATIENCE * 1000  # milliseconds


class StatusPanel:
    """Runs from construction to close(), on a connection of its own."""

    def __init__(self, shows=True):
        self.items, self.shows, self.icons = [], shows, 0
        self.bus = Gio.DBusConnection.new_for_address_sync(
            os.environ["DBUS_SESSION_BUS_ADDRESS"],
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
            Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self.bus.register_object("/StatusNotifierWatcher",
                                 Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0],
                                 self._called, self._read)
        self.bus.signal_subscribe(None, ITEM, "NewIcon", None, None, 0, self._icon_changed)
        Gio.bus_own_name_on_connection(self.bus, WATCHER, Gio.BusNameOwnerFlags.NONE)

    def close(self):
        if not self.bus.is_closed():
            self.bus.close_sync()

    def _called(self, _bus, sender, _path, _interface, method, arguments, invocation):
        if method == "RegisterStatusNotifierItem":
            name = arguments.unpack()[0]
            self.items.append((sender, name) if name.startswith("/") else
                              (name, "/StatusNotifierItem"))
        invocation.return_value(None)

    def _read(self, _bus, _sender, _path, _interface, name):
        return {"RegisteredStatusNotifierItems":
                GLib.Variant("as", [bus + path for bus, path in self.items]),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", self.shows),
                "ProtocolVersion": GLib.Variant("i", 0)}[name]

    def _icon_changed(self, *_):
        self.icons += 1

    def turn(self):
        """Lets the bus speak."""
        while GLib.MainContext.default().iteration(False):
            pass

    def say_shows(self, shows):
        self.shows = shows
        signal = "StatusNotifierHostRegistered" if shows else "StatusNotifierHostUnregistered"
        self.bus.emit_signal(None, "/StatusNotifierWatcher", WATCHER, signal, None)

    def wait_for_item(self):
        def registered():
            self.turn()
            return self.items
        return wait_until(registered, what="the status item")[-1]

    def _call(self, path, interface, method, arguments):
        return self.bus.call_sync(self.items[-1][0], path, interface, method, arguments, None, 0,
                                  TIMEOUT, None).unpack()

    def property(self, name):
        return self._call(self.items[-1][1], "org.freedesktop.DBus.Properties", "Get",
                          GLib.Variant("(ss)", (ITEM, name)))[0]

    def layout(self):
        """The items of the menu as (id, properties), as a panel that trusts its copy has them."""
        layout = self._call(self.property("Menu"), MENU, "GetLayout",
                            GLib.Variant("(iias)", (0, -1, [])))
        return [(child[0], child[1]) for child in layout[1][2]]

    def open_menu(self):
        """Whether the menu said that it changed, and its texts; "-" for a separator."""
        changed = self._call(self.property("Menu"), MENU, "AboutToShow", GLib.Variant("(i)", (0,)))
        return changed[0], ["-" if properties.get("type") == "separator" else properties["label"]
                            for _, properties in self.layout()]

    def click(self, identifier):
        self._call(self.property("Menu"), MENU, "Event",
                   GLib.Variant("(isvu)", (identifier, "clicked", GLib.Variant("s", ""), 0)))

    def find(self, beginning):
        """The first item whose label begins so."""
        return next(item for item in self.layout()
                    if item[1].get("label", "").startswith(beginning))
