"""A real Chromium is asked through our extension, as the program asks it.

Usage: browser_chromium_test.py HOST_PROGRAM BROWSER_ANSWERS, inside a desktop session whose home
folder is its own. The browser gets the extension as its user would: from --install.
"""
import json
import os
import signal
import subprocess
import sys
import unittest
from unittest import mock

from browser_chromium import ADDRESS, CHROME, TEXT, Answers, Chromium, Installation, Pages
from browser_documents import LONG, long_body, one_page_pdf
from windows import TextWindow, wait_until

HOST_PROGRAM, BROWSER_ANSWERS = sys.argv[1:3]


class ChromiumTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.installation = Installation(HOST_PROGRAM, BROWSER_ANSWERS)
        subprocess.run([cls.installation.host_program, "--install"], check=True,
                       stdout=subprocess.DEVNULL)
        cls.pages = Pages()
        cls.long = cls.pages.add("/long", "A long read", long_body())
        cls.other = cls.pages.add("/other", "Another page", "<p>Of another window.</p>")
        cls.answers = Answers(cls.installation.application,
                              cls.installation.host_program)
        cls.browser = Chromium(cls.long)
        cls.answers.wait_for_extension()
        cls.window = wait_until(cls.browser.windows, what="a window")[0]
        cls.elsewhere = TextWindow("Elsewhere", "Another program.")

    @classmethod
    def tearDownClass(cls):
        cls.elsewhere.close()
        cls.browser.close()
        cls.answers.close()
        cls.pages.close()
        cls.installation.close()

    def setUp(self):
        self.browser.bring_to_front(self.window)
        self.answers.say("front " + CHROME)
        self.answers.say("withhold")

    def open_in_front(self, *arguments):
        """Opens a window that is closed after the test."""
        window = self.browser.open(*arguments)
        self.addCleanup(self.browser.close_window, window)
        self.browser.bring_to_front(window)
        return window

    def show(self, address):
        window = self.open_in_front("--new-window", address)
        self.answers.wait_for_address(address)
        return window

    def assert_refused(self, answer):
        self.assertEqual((answer["failed"], answer["text"]), (True, None))

    def test_reads_address_and_exact_text_of_the_window_in_front(self):
        self.answers.wait_for_address(self.long)
        said = self.pages.text_of("/long")
        self.assertEqual(len(said), LONG)
        read = self.answers.text()
        self.assertEqual((read["failed"], read["text"]), (False, said))

    def test_answers_from_the_window_that_has_the_focus(self):
        window = self.show(self.other)
        self.assertEqual(self.answers.text()["text"], self.pages.text_of("/other"))
        self.browser.bring_to_front(self.window)
        self.answers.wait_for_address(self.long)
        self.assertEqual(self.answers.text()["text"], self.pages.text_of("/long"))
        self.browser.bring_to_front(window)
        self.answers.wait_for_address(self.other)

    def test_answers_from_another_profile_and_a_web_app(self):
        for number, flag in enumerate(("--profile-directory=Profile 1", "--app=")):
            path = f"/place{number}"
            address = self.pages.add(path, "Place", f"<p>Place {number}.</p>")
            arguments = [flag + address] if flag.endswith("=") else [flag, "--new-window", address]
            with self.subTest(arguments[0]):
                self.open_in_front(*arguments)
                self.answers.wait_for_address(address)
                self.assertEqual(self.answers.text()["text"], self.pages.text_of(path))
                self.browser.bring_to_front(self.window)
                self.answers.wait_for_address(self.long)

    def test_refuses_while_a_private_window_has_the_focus(self):
        secret = self.pages.add("/secret", "Secret", "<p>Nobody may know.</p>")
        self.open_in_front("--incognito", secret)
        self.assertIn("Nobody", self.pages.text_of("/secret"))
        for _ in range(20):
            self.assert_refused(self.answers.address())
            self.assert_refused(self.answers.say("main " + ADDRESS))
            self.assert_refused(self.answers.text())
        self.elsewhere.bring_to_front()
        self.answers.say("front")
        self.assertEqual(self.answers.address()["text"], self.long)

    def test_tells_no_more_than_the_address_while_another_program_is_in_front(self):
        self.answers.wait_for_address(self.long)
        self.elsewhere.bring_to_front()
        self.answers.say("front app.mnemora.Mnemora")
        for run in ("run ", "main "):
            self.assertEqual(self.answers.say(run + ADDRESS)["text"], self.long)
        self.assert_refused(self.answers.text())
        # The desktop says the browser is in front, the browser knows better: a moment of change.
        self.answers.say("front " + CHROME)
        self.assert_refused(self.answers.address())
        self.assert_refused(self.answers.text())

    def test_keeps_to_itself_the_text_under_a_withheld_title(self):
        self.answers.wait_for_address(self.long)
        self.answers.say("withhold long read")
        self.assert_refused(self.answers.text())
        self.assertEqual(self.answers.address()["text"], self.long)

    def test_keeps_to_itself_the_text_of_a_concealed_page(self):
        self.answers.wait_for_address(self.long)
        self.addCleanup(self.answers.say, "conceal")
        self.answers.say("conceal /long")
        self.assert_refused(self.answers.text())
        self.assertEqual(self.answers.address()["text"], self.long)

    def test_has_an_address_but_no_text_where_there_is_no_page(self):
        document = self.pages.add_file("/paper.pdf", "application/pdf", one_page_pdf())
        for start, arguments in (("chrome://new", []), (document, [document])):
            with self.subTest(start):
                self.open_in_front("--profile-directory=Default", "--new-window", *arguments)
                wait_until(lambda: (self.answers.address()["text"] or "").startswith(start),
                           what="the address")
                self.assert_refused(self.answers.text())

    def test_survives_hostile_pages(self):
        address = self.pages.add("/a", "Long address", "<p>Here.</p><script>history.replaceState("
                                 "null, '', '?' + 'a'.repeat(64 << 10))</script>", report=False)
        self.open_in_front("--new-window", address)
        self.answers.wait_for_address(address + "?" + "a" * (64 << 10))
        self.assertEqual(self.answers.text()["text"], "Here.")
        # Control characters, a lone surrogate, a character cut in two by the bound.
        script = ("<script>document.body.append('\\x01\\x1b[0m\\u202e\\ud800' + "
                  "'\\u{1f600}'.repeat(5 << 20))</script>")
        self.show(self.pages.add("/huge", "Huge", script, report=False))
        text = wait_until(lambda: self.answers.text()["text"], what="the huge page's text")
        self.assertTrue(text.startswith("\x01\x1b[0m\u202e\ufffd\U0001f600"), text[:20])
        self.assertLessEqual(len(text.encode()), 1 << 20)
        self.assertEqual(set(text[-1000:]), {"\U0001f600"})

    def test_a_hung_page_has_an_address_and_hinders_no_other(self):
        hung = self.pages.add("/hung", "Hung", "<script>onload = () => setTimeout(() => {"
                              "fetch('/said?/hung', {method: 'POST', body: 'hangs'});"
                              "setTimeout(() => { for (;;); }, 300) })</script>", report=False)
        self.show(hung)
        self.pages.text_of("/hung")
        wait_until(lambda: self.answers.text()["failed"], what="the page to hang")
        for _ in range(3):
            self.assert_refused(self.answers.text())
            self.assertEqual(self.answers.address()["text"], hung)
        self.browser.bring_to_front(self.window)
        self.answers.wait_for_address(self.long)
        self.assertEqual(self.answers.text()["text"], self.pages.text_of("/long"))


class ChromiumEndsTest(unittest.TestCase):
    def setUp(self):
        self.installation = self.started(Installation(HOST_PROGRAM, BROWSER_ANSWERS))
        subprocess.run([self.installation.host_program, "--install"], check=True,
                       stdout=subprocess.DEVNULL)
        self.pages = Pages()
        self.addCleanup(self.pages.close)
        self.address = self.pages.add("/page", "A page", "<p>Words.</p>")
        self.answers = self.started(Answers(self.installation.application,
                                            self.installation.host_program))
        self.browser = self.started(Chromium(self.address))
        self.answers.wait_for_extension()
        self.answers.say("front " + CHROME)
        self.answers.wait_for_address(self.address)

    def started(self, thing):
        self.addCleanup(thing.close)
        return thing

    def test_a_browser_that_hangs_and_then_dies_is_an_error_in_time(self):
        os.kill(self.browser.main_process(), signal.SIGSTOP)
        # What it told before still counts for a moment, then no longer.
        answer = self.answers.say("main " + ADDRESS)
        self.assertEqual(answer["text"], self.address)
        self.assertLess(answer["ms"], 50)
        wait_until(lambda: self.answers.say("main " + ADDRESS)["failed"], what="the error")
        self.answers.begin("run " + TEXT)
        os.kill(self.browser.main_process(), signal.SIGKILL)
        self.assertEqual(self.answers.end(), {"failed": True, "text": None, "ms": mock.ANY})
        wait_until(lambda: not self.answers.has_extension(), what="the connection's end")
        self.assertTrue(self.answers.address()["failed"])

    def test_the_extension_itself_gives_no_text_but_that_of_the_window_with_the_focus(self):
        self.pages.text_of("/page")
        self.answers.close()
        raw = self.started(Answers(self.installation.application, self.installation.host_program,
                                   "--raw"))
        elsewhere = self.started(TextWindow("Elsewhere", "Another program."))
        text, behind, address = ({"id": 1, "ask": "text", "focused": True},
                                 {"id": 2, "ask": "text", "focused": False},
                                 {"id": 3, "ask": "address", "focused": False})
        self.browser.bring_to_front(self.browser.windows()[0])
        wait_until(lambda: "text" in raw.say(json.dumps(text)), what="the text")
        self.assertEqual(raw.say(json.dumps(text))["text"], "Words.")
        for question in (behind, {"id": 4, "ask": "cookies", "focused": True}):
            self.assertIn("refused", raw.say(json.dumps(question)))
        elsewhere.bring_to_front()
        wait_until(lambda: "refused" in raw.say(json.dumps(text)), what="the refusal")
        for question in (text, behind):
            answer = raw.say(json.dumps(question))
            self.assertIn("refused", answer)
            self.assertNotIn("text", answer)
        self.assertEqual(raw.say(json.dumps(address))["address"], self.address)

    def test_the_application_comes_back_and_the_extension_goes_when_removed(self):
        self.answers.close()
        self.answers = self.started(Answers(self.installation.application,
                                            self.installation.host_program))
        self.answers.wait_for_extension()
        self.answers.say("front " + CHROME)
        self.answers.wait_for_address(self.address)
        self.browser.close()
        subprocess.run([self.installation.host_program, "--remove"], check=True,
                       stdout=subprocess.DEVNULL)
        self.browser = self.started(Chromium(self.address))
        self.pages.said.clear()
        self.pages.text_of("/page")
        self.assertEqual(list(self.browser.folder.rglob("app.mnemora.pages.json")), [])
        wait_until(lambda: not list(self.browser.folder.glob("*/Extensions/*/*/worker.js")),
                   what="the browser to drop the extension")
        self.assertFalse(self.answers.has_extension())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
