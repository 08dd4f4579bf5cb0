"""The desktop's screen cast portal in a private Wayland session, with PipeWire and all."""
import os
import pathlib
import subprocess

from capture import Started
from windows import wait_until

BACKEND = "/usr/libexec/xdg-desktop-portal-wlr"


def start(started, without_graphics_card):
    """Starts what the portal needs and isn't there yet, each handed to `started`; by name. The
    frontend is started by the bus, and allows the first monitor without a dialog."""
    settings = pathlib.Path(os.environ["HOME"], ".config", "xdg-desktop-portal-wlr")
    settings.mkdir(parents=True, exist_ok=True)
    (settings / "config").write_text("[screencast]\nchooser_type=none\n", encoding="utf-8")
    programs = {"pipewire": started(Started(["pipewire"]))}
    wait_until(pathlib.Path(os.environ["XDG_RUNTIME_DIR"], "pipewire-0").exists, what="PipeWire")
    programs["wireplumber"] = started(Started(["wireplumber"]))
    wait_until(lambda: b"WirePlumber" in subprocess.run(
        ["pw-cli", "list-objects", "Client"], capture_output=True, check=False).stdout,
               what="its session manager")
    # Not by the bus, because it needs the library here.
    programs["portal"] = started(Started(
        [BACKEND], env=dict(os.environ, LD_PRELOAD=str(without_graphics_card))))
    return programs
