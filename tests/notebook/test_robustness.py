"""What no front end should do, over the sockets themselves: every request has one reply and one idle, with its own parent."""

import collections
import json
import os
import random
import select
import signal
import subprocess
import sys
import time
import unittest

import zmq
from jupyter_client.manager import start_new_kernel

import kernels
from numora_program import LIMIT

INTERRUPTS, CELLS, DISPLAYS = 300, 60, 20_000
ENDLESS = "while True: pass"


def garbage(session):
    """Frames by what is wrong with them."""
    delimiter, signature, *parts = session.serialize(session.msg("kernel_info_request", {}))

    def signed(*parts):
        return [delimiter, session.sign(parts), *parts]

    header = parts[0]
    return {"nothing": [b""], "no delimiter": [b"x"] * 6, "the delimiter alone": [delimiter],
            "too few parts": signed(*parts[:2]), "no signature": [delimiter, b"", *parts],
            "another signature": [delimiter, signature[::-1], *parts],
            "a changed part": [delimiter, signature, *parts[:3], b'{"a":1}'],
            "no UTF-8": signed(b"\xff\0", *parts[1:]), "no JSON": signed(header[:-1], *parts[1:]),
            "an array": signed(b"[]", *parts[1:]), "a header without its members": signed(b"{}", *parts[1:]),
            "a type that is a number": signed(header.replace(b'"kernel_info_request"', b"7"), *parts[1:]),
            "depth": signed(b"[" * 200_000, *parts[1:]), "many parts": [delimiter] * 2_000}


# Requests that are good but for their contents.
CONTENTS = [("execute_request", {}), ("execute_request", {"code": 7}), ("execute_request", {"code": "1", "silent": "no"}),
            ("execute_request", {"code": "1", "user_expressions": [1]}), ("execute_request", {"code": "'\ud800'\0"}),
            ("complete_request", {"code": "zi", "cursor_pos": -5}), ("complete_request", {"code": "zi", "cursor_pos": 2**70}),
            ("complete_request", {}), ("inspect_request", {"code": "zip", "cursor_pos": "x"}), ("is_complete_request", {"code": None}),
            ("history_request", {"hist_access_type": "none"}),
            ("history_request", {"hist_access_type": "range", "session": "x", "start": -9, "stop": 2**70}),
            ("comm_info_request", {"target_name": 7})]


class RobustnessTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.kernel = cls.enterClassContext(kernels.Kernel())

    def setUp(self):
        self.client = self.enterContext(self.kernel.connect())

    def assert_answered(self, requests, replies, published):
        """Each once, with statuses from busy to idle; busy may be told again while other requests come beside it."""
        self.assertEqual(collections.Counter(requests), collections.Counter(parent for parent, _ in replies))
        states = collections.defaultdict(list)
        for parent, message in published:
            if message["msg_type"] == "status":
                states[parent].append(message["content"]["execution_state"])
        for request in requests:
            told = states[request]
            self.assertEqual(("busy", "idle", 1), (told[0], told[-1], told.count("idle")), told)

    def test_garbage_is_dropped(self):
        frames = garbage(self.client.session)
        for channel in "shell", "control", "stdin":
            for wrong in frames.values():
                self.client.sockets[channel].send_multipart(wrong)
        good = self.client.session.msg("kernel_info_request", {})
        for channel in "shell", "control":
            for _ in range(2):  # the second one is a replay
                self.client.sockets[channel].send_multipart(self.client.session.serialize(good))
            replies, _ = self.client.all_of([], channel)
            self.assertEqual([parent for parent, _ in replies], [good["header"]["msg_id"]] if channel == "shell" else [])

    def test_a_wrong_key_has_no_answer(self):
        with kernels.Client(self.kernel.connection, b"another key") as stranger:
            stranger.execute("a_stranger = 1")
            stranger.session = self.client.session  # with the right key, after it on the same socket
            self.assertEqual("NameError", stranger.run("a_stranger")[0]["ename"])

    def test_wrong_contents_have_a_reply(self):
        requests = [self.client.send("shell", kind, json.dumps(content).encode()) for kind, content in CONTENTS]
        self.assert_answered(requests, *self.client.all_of(requests))
        self.assertEqual(self.client.run("print(6 * 7)")[1], "42\n")

    def test_tracebacks_have_the_numbers_that_are_shown(self):
        last = self.client.run("1")[0]["execution_count"]
        self.client.run("def fail():\n  1 / 0", silent=True)
        self.client.run("0", store_history=False)
        reply = self.client.run("fail()")[0]
        self.assertEqual(reply["execution_count"], last + 1)
        self.assertIn(f'File "<cell {last + 1}>", line 1, in <module>\n    fail()\n  File "<cell {last + 1}.1>", line 2, in fail\n    1 / 0\n',
                      "\n".join(reply["traceback"]))

    def test_unknown_requests_are_busy_and_idle(self):
        request = self.client.send("shell", "walk_the_dog_request", {})
        states = [came["content"]["execution_state"] for came in self.client.outputs(request)]
        self.assertEqual(["busy", "idle"], states)

    def test_two_clients_get_what_is_theirs(self):
        """Cells, some of which fail and so abort those that wait, with requests that are answered beside them."""
        choices = random.Random(1)
        with self.kernel.connect() as other:
            clients, requests = [self.client, other], {self.client: [], other: []}
            self.client.run("count = 0")
            for number in range(CELLS):
                client = choices.choice(clients)
                code = choices.choice(["count += 1", "count += 1; print(count)", "count += 1; 1 / 0", "zip?"])
                requests[client].append(client.execute(code))
                if choices.random() < .5:
                    content = {"code": "coun", "cursor_pos": 4}
                    requests[client].append(client.send("shell", "complete_request", content))
            statuses, everything = collections.Counter(), sum(requests.values(), [])
            for client in clients:
                replies, published = client.all_of(everything)
                self.assert_answered(requests[client], replies, published)
                statuses += collections.Counter(message["content"]["status"] for _, message in replies
                                                if message["msg_type"] == "execute_reply")
            self.assertEqual(set(statuses), {"ok", "error", "aborted"})

    def test_answers_out_of_turn_are_not_typed(self):
        asks = "answer = input('Who? ')"
        with self.kernel.connect() as other:
            self.client.send("stdin", "input_reply", {"value": "stale = 1"})
            request = self.client.execute(asks, allow_stdin=True)
            question = self.client.receive("stdin")
            self.assertEqual(({"prompt": "Who? ", "password": False}, request),
                             (question["content"], question["parent_header"]["msg_id"]))
            other.send("stdin", "input_reply", {"value": "foreign"}, question)
            of_another = self.client.session.msg("input_request", {})
            self.client.send("stdin", "input_reply", {"value": "of another question"}, of_another)
            self.client.send("stdin", "input_reply", {"value": "Ada"}, question)
            self.client.send("stdin", "input_reply", {"value": "twice = 1"}, question)
            self.assertEqual("ok", self.client.reply(request)["status"])
            self.client.outputs(request)
            reply, text = self.client.run("print(answer, 'stale' in dir(), 'twice' in dir())")
            self.assertEqual(text, "Ada False False\n", reply)

            request = self.client.execute(asks, allow_stdin=True)
            question = self.client.receive("stdin")
            self.client.reply(self.client.send("control", "interrupt_request", {}), "control")
            self.assertEqual("KeyboardInterrupt", self.client.reply(request)["ename"])
            self.client.send("stdin", "input_reply", {"value": "late = 1"}, question)
            self.assertEqual(self.client.run("print(answer, 'late' in dir())")[1], "Ada False\n")
            self.assertEqual("StdinNotImplementedError", self.client.run(asks)[0]["ename"])

    def test_interrupts_at_the_beginning_of_requests(self):
        """What begins before one is interrupted by it; what was sent after its reply is not."""
        choices, ends = random.Random(2), collections.Counter()
        self.client.run("done = []")
        for number in range(INTERRUPTS):
            endless = number % 3 == 0
            request = self.client.execute(ENDLESS if endless else f"done.append({number})")
            if endless:
                self.client.until_input_executes(request)
            until = time.perf_counter() + choices.random() * .002
            while time.perf_counter() < until:
                pass
            stop = self.client.send("control", "interrupt_request", {})
            self.assertEqual("ok", self.client.reply(stop, "control")["status"])
            reply = self.client.reply(request)
            ends[endless, reply.get("ename", reply["status"])] += 1
            next_one = self.client.execute("done")
            self.assertEqual("ok", self.client.reply(next_one)["status"], number)
            self.client.outputs(next_one)
        self.assertEqual(ends[True, "KeyboardInterrupt"], (INTERRUPTS + 2) // 3, ends)
        self.assertLessEqual(set(ends), {(True, "KeyboardInterrupt"), (False, "KeyboardInterrupt"), (False, "ok")})

    def test_signals_and_requests_on_shell_interrupt_too(self):
        def on_shell():
            interrupts.append(self.client.send("shell", "interrupt_request", {}))
        interrupts = []
        for interrupt in lambda: self.kernel.process.send_signal(signal.SIGINT), on_shell:
            request = self.client.execute(ENDLESS)
            self.client.until_input_executes(request)
            interrupt()
            while (message := self.client.receive("shell"))["msg_type"] != "execute_reply":
                self.assertEqual(interrupts, [message["parent_header"]["msg_id"]])
            self.assertEqual("KeyboardInterrupt", message["content"]["ename"])

    def test_a_reader_loses_nothing_beside_one_that_is_stuck(self):
        with zmq.Context.instance().socket(zmq.SUB) as stuck:
            stuck.linger, stuck.rcvhwm, stuck.rcvbuf = 0, 1, 4096
            stuck.subscribe(b"")
            stuck.connect(f"tcp://127.0.0.1:{self.kernel.connection['iopub_port']}")
            stuck.poll(LIMIT * 1000)
            request = self.client.execute(f"for i in range({DISPLAYS}): display({{'text/plain': f'{{i:01000}}'}}, raw=True)")
            numbers = [int(came["content"]["data"]["text/plain"]) for came in self.client.outputs(request)
                       if came["msg_type"] == "display_data"]
            self.assertEqual(numbers, list(range(DISPLAYS)))


class EndTest(unittest.TestCase):
    """Kernels and those who have started them end in the middle of cells."""

    def test_a_shutdown_during_a_cell(self):
        with kernels.Kernel() as kernel, kernel.connect() as client:
            cell = client.execute(ENDLESS)
            client.until_input_executes(cell)
            request = client.send("control", "shutdown_request", {"restart": False})
            self.assertEqual({"status": "ok", "restart": False}, client.reply(request, "control"))
            client.outputs(request)
            self.assertEqual(0, kernel.process.wait(LIMIT))

    def test_a_killed_kernel_starts_again(self):
        manager, client = start_new_kernel(kernel_name=kernels.NAME)
        try:
            client.execute(ENDLESS)
            while client.get_iopub_msg(timeout=LIMIT)["msg_type"] != "execute_input":
                pass
            os.kill(manager.provisioner.pid, signal.SIGKILL)
            manager.restart_kernel(now=True)  # on the same ports
            client.wait_for_ready(timeout=LIMIT)
            self.assertEqual("ok", client.execute("1", reply=True, timeout=LIMIT)["content"]["status"])
        finally:
            client.stop_channels()
            manager.shutdown_kernel(now=True)

    def test_a_kernel_ends_with_its_parent(self):
        """Which is told by the environment."""
        code = ("import os, subprocess, sys\n"
                "print(subprocess.Popen(sys.argv[1:], env={**os.environ, 'JPY_PARENT_PID': str(os.getpid())}).pid, flush=True)\n"
                "os.read(0, 1)\n")
        with kernels.Kernel(command=lambda arguments: [sys.executable, "-c", code, *arguments], stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE) as parent, parent.connect() as client:
            kernel = os.pidfd_open(int(parent.process.stdout.readline()))
            client.until_input_executes(client.execute(ENDLESS))
            with parent.process:
                parent.process.kill()
            self.assertTrue(select.select([kernel], [], [], LIMIT)[0])
            os.close(kernel)


if __name__ == "__main__":
    unittest.main()
