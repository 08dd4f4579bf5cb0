"""A call, recorded by the whole program: from the call application's window to the store.

Usage: recording_test.py PROGRAM, inside a desktop session inside a sound session
(scripts/audio-session), whose loudspeakers and microphone it speaks into.
"""
import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(ROOT / "tests" / "Trust"))
from running import ProgramTest, wait_until
import traced
from windows import xdotool

PATIENCE = 60  # loading the weights included
STARTED = "[mnemora] meeting recording started (on-device)"


def geometry(window):
    lines = xdotool("getwindowgeometry", "--shell", window).splitlines()
    return {name: int(value) for name, value in (line.split("=") for line in lines)}


class RecordingTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.desk = self.window("Notes")

    def start(self, *tracer, **environment):
        self.launch(*tracer, **environment).wait_for_title("Notes")

    def start_traced(self, **environment):
        """To be looked at for sockets at the end, where processes can be traced."""
        if not traced.is_possible():
            return self.start(**environment)
        trace = self.folder / "trace"
        self.addCleanup(lambda: self.assertEqual(traced.Trace(trace).socket_families(), {"AF_UNIX"}))
        return self.start(*traced.strace(trace, "socket"), **environment)

    def call(self):
        window = self.window("Weekly call", "Three people.", "+80+200", window_class="zoom")
        window.bring_to_front()
        return window

    def panel(self):
        """The consent panel's window: the only one of ours in the top right corner."""
        for window in xdotool("search", "--onlyvisible", "--class", "^mnemora$").split():
            place = geometry(window)
            if place.get("WIDTH", 0) > 200 and place["X"] > 640 and place["Y"] < 100:
                return window
        return None

    def press_record(self, outcome=STARTED):
        panel = wait_until(self.panel, what="the consent panel")
        size = geometry(panel)
        xdotool("mousemove", "--sync", "--window", panel, str(size["WIDTH"] - 45),
                str(size["HEIGHT"] - 28))
        xdotool("click", "1")
        self.wait_for_log(outcome)
        wait_until(lambda: not self.panel(), what="the panel's end")
        streams = 2 if outcome == STARTED else 0
        wait_until(lambda: self.our_streams() == streams, what="both sides' sound, or none")

    @staticmethod
    def our_streams():
        answer = subprocess.run(["pactl", "list", "source-outputs"], capture_output=True, text=True,
                                check=True)
        return answer.stdout.count('application.id = "app.mnemora.Mnemora"')

    def voice(self, name, words):
        path = self.folder / f"{name}.wav"
        subprocess.run(["flite", "-voice", name, "-t", words, "-o", path], check=True)
        return path

    @staticmethod
    def play(sink, voice):
        subprocess.run(["paplay", "--latency-msec=50", f"--device={sink}", voice], check=True,
                       timeout=PATIENCE)

    def said_by(self, person):
        return " ".join(event["body"].lower() for event in self.observer.events()
                        if event["kind"] == "meeting" and event["person"] == person)

    def test_a_consent_click_records_each_side_under_its_own_name(self):
        self.start()
        user = self.voice("slt", "The garden is full of yellow flowers this morning.")
        other = self.voice("rms", "We should move the meeting to Thursday afternoon.")
        call = self.call()
        wait_until(self.panel, what="the consent panel")
        self.assertEqual(xdotool("getactivewindow"), call.identifier)  # it takes no focus
        self.press_record()
        players = [subprocess.Popen(["paplay", "--latency-msec=50", f"--device={sink}", voice])
                   for sink, voice in (("MicFeed", user), ("Speakers", other))]
        for player in players:
            self.assertEqual(player.wait(PATIENCE), 0)
        wait_until(lambda: "flowers" in self.said_by("You"), PATIENCE, "the user's words")
        wait_until(lambda: "thursday" in self.said_by("Them"), PATIENCE, "the other's words")
        self.assertNotIn("meeting", self.said_by("You"))
        self.assertNotIn("garden", self.said_by("Them"))
        event = next(event for event in self.observer.events() if event["kind"] == "meeting")
        self.assertEqual((event["source"], event["app"]), ("audio", "Meeting"))
        self.assertTrue(event["title"].startswith("Meeting · "))

        self.desk.bring_to_front()
        call.bring_to_front()  # no second offer while recording
        self.assertIsNone(self.panel())
        children = self.observer.children()
        began = time.monotonic()
        self.assertEqual(self.observer.stop(), 0)
        self.assertLess(time.monotonic() - began, 1)
        wait_until(lambda: not any(pathlib.Path(f"/proc/{child}").exists() for child in children),
                   what="the end of the children")
        wait_until(lambda: self.our_streams() == 0, what="the end of listening")

    def test_it_goes_on_after_a_suspension_and_after_the_sound_servers_death(self):
        self.start_traced()
        self.call()
        self.press_record()
        held = [self.observer.process.pid, *self.observer.children()]
        for signal_number in (signal.SIGSTOP, signal.SIGCONT):
            for pid in held:
                os.kill(pid, signal_number)
            if signal_number == signal.SIGSTOP:  # more than a server keeps for a client
                self.play("Speakers", self.voice("slt", "Nobody hears what is said meanwhile. " * 4))
        self.play("Speakers", self.voice("rms", "We should move the meeting to Thursday afternoon."))
        wait_until(lambda: "thursday" in self.said_by("Them"), PATIENCE, "words after it")
        # The desktop session has a runtime folder of its own.
        sound = dict(os.environ, XDG_RUNTIME_DIR=os.environ["PIPEWIRE_RUNTIME_DIR"])
        subprocess.run([ROOT / "scripts" / "audio-session", "--restart"], check=True, env=sound,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: self.our_streams() == 2, what="both sides' sound again")
        self.play("MicFeed", self.voice("slt", "The garden is full of yellow flowers this morning."))
        wait_until(lambda: "flowers" in self.said_by("You"), PATIENCE, "words after the restart")
        self.assertEqual(self.log().count(STARTED), 1)

    def test_it_follows_no_address_of_a_sound_server_into_the_network(self):
        self.start_traced(PULSE_SERVER="tcp:127.0.0.1:9")
        self.call()
        self.press_record("microphone refused: ")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
