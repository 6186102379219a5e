"""The relay between the sockets of front ends and the interpreter of a server: two clients at a time."""

import os
import pathlib
import signal
import subprocess
import tempfile
import unittest

import kernels
from numora_program import LIMIT, TOKEN, CuttingProxy, Server, run


def relay(url, *arguments):
    return kernels.Kernel(lambda given: [*given, "--url", url, *arguments], stderr=subprocess.PIPE)


def text_of(messages, name="stdout"):
    return "".join(came["content"]["text"] for came in messages if came["content"].get("name") == name)


class RelayTest(unittest.TestCase):
    def setUp(self):
        self.access = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()), "access")
        self.server = self.enterContext(Server("--allow-host", "127.0.0.1", "--access-log", str(self.access)))

    def start(self, *arguments, url=None):
        """The relay, and two clients of it."""
        kernel = self.enterContext(relay(url or self.server.url, *arguments))
        self.addCleanup(kernel.process.stderr.close)
        return kernel, *(self.enterContext(kernel.connect()) for _ in range(2))

    def end(self, kernel):
        """Its exit status, and what it told."""
        error = kernel.process.communicate(timeout=LIMIT)[1].decode()
        return kernel.process.returncode, error

    def test_messages_pass_untouched_to_who_asked(self):
        _, first, second = self.start()
        for client, name in (first, "Ada"), (second, "Bob"):
            request = client.execute("print(input('Name? '))\n6 * 7", allow_stdin=True)
            asked = client.receive("stdin")
            self.assertEqual((asked["parent_header"]["msg_id"], asked["content"]["prompt"]), (request, "Name? "))
            client.send("stdin", "input_reply", {"value": name}, asked)
            self.assertEqual(client.reply(request)["status"], "ok")
            for one in first, second:
                came = one.outputs(request)
                self.assertEqual(text_of(came), name + "\n")
                self.assertEqual([message["content"]["data"]["text/plain"] for message in came if message["msg_type"] == "execute_result"], ["42"])
        # The interpreter is that of all its clients, and what they do to what a notebook shows is seen there.
        self.assertEqual(run("eval", "--url", self.server.url, "_"), (0, "42\n", ""))
        first.run("shown = display(1, display_id='d')")
        self.server.eval("display('theirs'); shown.update(2)")
        _, published = first.all_of([first.execute("3")])
        shown = [message for _, message in published if "data" in message["content"]]
        self.assertEqual([(message["msg_type"], message["content"]["data"]) for message in shown],
                         [("update_display_data", {"text/plain": "2"}), ("execute_result", {"text/plain": "3"})])

    def test_a_signal_interrupts_and_others_are_answered_meanwhile(self):
        kernel, first, second = self.start()
        request = first.execute("print('begun', flush=True)\nwhile True: pass")
        while first.receive("iopub")["content"].get("text") != "begun\n":
            pass
        aside = second.send("shell", "complete_request", {"code": "impor", "cursor_pos": 5})
        self.assertIn("import", second.reply(aside)["matches"])
        kernel.process.send_signal(signal.SIGINT)
        self.assertEqual(first.reply(request)["ename"], "KeyboardInterrupt")

    def test_the_end_of_a_relay(self):
        """What a client asks for, and what becomes of the interpreter."""
        def interpreters():
            return run("interpreters", "--url", self.server.url)[1].count("\n")

        rows = {"shut down": ([], False, "7\n"), "restart": ([], True, "NameError"), "its own": (["--new"], False, "NameError")}
        for name, (arguments, is_restart, found) in rows.items():
            with self.subTest(name):
                before = interpreters()
                kernel, client, _ = self.start(*arguments)
                self.assertEqual(client.run("kept = 7")[0]["status"], "ok")
                request = client.send("control", "shutdown_request", {"restart": is_restart})
                self.assertEqual(client.reply(request, "control"), {"status": "ok", "restart": is_restart})
                self.assertEqual(self.end(kernel), (0, ""))
                self.assertEqual(interpreters(), before)
                outcome = run("eval", "--url", self.server.url, "kept")
                self.assertIn(found, outcome[1] + outcome[2])
                run("eval", "--url", self.server.url, "globals().pop('kept', 0)")
        self.server.stop()
        closed = [line for line in self.access.read_text().splitlines() if "CLOSE" in line]
        self.assertEqual([" 1006 " in line for line in closed], [False] * len(rows), closed)

    def test_the_second_signal_ends_a_relay_that_waits_for_its_server(self):
        kernel, client, _ = self.start("--new")
        os.kill(self.server.pid, signal.SIGSTOP)
        request = client.execute("1")
        large = client.send("shell", "complete_request", {"code": "x" * (16 << 20)})
        self.assertEqual(client.reply(large)["evalue"], "a message must have at most 16 MiB")
        kernel.process.send_signal(signal.SIGTERM)
        self.assertEqual(client.reply(request)["evalue"], "the kernel was shut down")
        kernel.process.send_signal(signal.SIGTERM)
        self.assertEqual(self.end(kernel)[0], -signal.SIGTERM)

    def test_a_start_that_fails_says_why(self):
        port = self.server.port
        rows = {"nobody listens": (["http://127.0.0.1:1"], "cannot connect to http://127.0.0.1:1/interpreters/default/: Connection refused"),
                "wrong token": ([f"http://127.0.0.1:{port}", "--token", "x" * 20], "status 401"),
                "no such interpreter": ([self.server.url, "--interpreter", "nowhere"], 'There is no interpreter "nowhere"')}
        for name, (arguments, reason) in rows.items():
            with self.subTest(name), relay(*arguments) as kernel:
                status, error = self.end(kernel)
                self.assertEqual((status, error.count("\n")), (1, 1), error)
                self.assertIn(reason, error)

    def test_a_connection_that_is_cut_loses_nothing(self):
        proxy = self.enterContext(CuttingProxy(self.server.port))
        _, first, second = self.start(url=f"http://127.0.0.1:{proxy.port}?token={TOKEN}")
        request = first.execute("import time\nfor i in range(400):\n    print(i, flush=True)\n    time.sleep(.01)")
        while "5\n" not in first.receive("iopub")["content"].get("text", ""):
            pass
        proxy.cut()
        self.assertEqual(first.reply(request)["status"], "ok")
        came = second.outputs(request)
        self.assertEqual(text_of(came), "".join(f"{i}\n" for i in range(400)))
        told = text_of(came, "stderr").splitlines()
        self.assertRegex(told[0], r"^numora: the connection is lost to http://127\.0\.0\.1:\d+/: .*\. Trying again\.$")
        self.assertEqual(told[1:], ["numora: The server is back."])

    def test_another_server_in_its_place_ends_all_that_waits(self):
        kernel, first, second = self.start()
        request = first.execute("while True: pass")
        first.until_input_executes(request)
        queued = second.execute("1")
        port = self.server.port
        self.server.stop(signal.SIGKILL)
        with Server("--allow-host", "127.0.0.1", port=port):
            for client, waiting in (first, request), (second, queued):
                self.assertEqual(client.reply(waiting)["status"], "error")
            self.assertEqual(first.outputs(request)[-1]["content"], {"execution_state": "idle"})
            status, error = self.end(kernel)
        self.assertEqual(status, 1)
        self.assertTrue(error.endswith("status 404: the kernel is gone\n"), error)


if __name__ == "__main__":
    unittest.main()
