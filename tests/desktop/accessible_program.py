"""A program's own windows, as assistive technology finds them."""
import gi

from windows import wait_until

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib


class AccessibleProgram:
    def __init__(self, process):
        self.process = process

    def objects(self):
        """Everything below the program; what goes away meanwhile is left out."""
        todo = [Atspi.get_desktop(0)]
        while todo:
            try:
                parent = todo.pop()
                parent.clear_cache()
                children = [parent.get_child_at_index(i) for i in range(parent.get_child_count())]
                if parent.get_role() == Atspi.Role.DESKTOP_FRAME:
                    children = [child for child in children
                                if child and child.get_process_id() == self.process]
                todo += [child for child in children if child]
                yield parent.get_role(), parent.get_name(), parent
            except GLib.Error:
                continue

    def shows(self, text):
        return any(name == text and item.get_state_set().contains(Atspi.StateType.SHOWING)
                   for _, name, item in self.objects())

    def buttons(self):
        return {name: item for role, name, item in self.objects()
                if role == Atspi.Role.PUSH_BUTTON
                and item.get_state_set().contains(Atspi.StateType.SHOWING)}

    def click(self, name):
        button = wait_until(lambda: self.buttons().get(name), what=f"the button '{name}'")
        Atspi.Action.do_action(button, 0)
