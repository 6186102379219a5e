"""Interpreters in processes of their own: how they die, and what is left then."""

import concurrent.futures
import contextlib
import ctypes
import json
import os
import random
import resource
import shutil
import signal
import tempfile
import time
import unittest

from numora_program import LIMIT, NUMORA, TOKEN, Server, Session

DEFAULT = "/interpreters/default"
RESPONSES = "/eval/response/"
STATES = "/connector/interpreter"
LIFE = "Connector-Interpreter-Life"
PR_CAPBSET_DROP = 24


def wait_until(condition):
    """Gives the first result that is true."""
    end = time.monotonic() + LIMIT
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError("it does not come to that")
        time.sleep(0.005)
    return result


def processes(field, number):
    """The ids and states of those that have this number as their parent (1) or group (2)."""
    found = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError), open(f"/proc/{name}/stat") as stat:
            fields = stat.read().rpartition(") ")[2].split()
            if int(fields[field]) == number:
                found[int(name)] = fields[0]
    return found


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().rpartition(") ")[2][0] not in "ZX"
    except OSError:
        return False


class Workers(Server):
    """A server, with what it tells of its interpreters."""

    def get(self, path=DEFAULT):
        return json.loads(self.request(path)[1])

    def deaths(self):
        return self.get(DEFAULT + "/deaths")["deaths"]

    def later(self, path, message, **headers):
        """A future of the status and the object of an answer."""
        def ask():
            status, body = self.request(path, message, **headers)
            return status, json.loads(body)
        return concurrent.futures.ThreadPoolExecutor(1).submit(ask)

    def later_eval(self, code, path="", **headers):
        return self.later(path + "/connector/v1/Eval", {"mcode": code}, **headers)

    def restart(self, **wish):
        return self.later(DEFAULT + "/restart", {"force": True, **wish})

    def processes(self):
        return processes(1, self.pid)

    def process(self):
        return next(iter(self.processes()), None)

    def metric(self, name):
        return int(next(line for line in self.request("/metrics")[1].splitlines() if line.startswith(name)).split()[1])

    def hold_start(self):
        """Restarts it and stops the process before it is ready; its id, and what answers the restart."""
        while True:
            old, restarted = self.processes(), self.restart()
            pid = wait_until(lambda: next((pid for pid in self.processes() if pid not in old), None))
            os.kill(pid, signal.SIGSTOP)
            if self.get()["state"] == "starting":
                return pid, restarted
            os.kill(pid, signal.SIGCONT)


class Gate:
    """Where code waits, by `self.code`, until it is let go."""

    def __enter__(self):
        self._folder = tempfile.TemporaryDirectory()
        self._path = os.path.join(self._folder.name, "gate")
        os.mkfifo(self._path)
        self._end = None
        self.code = f"_ = open({self._path!r}).read()\n"
        return self

    def _come(self):
        with contextlib.suppress(OSError):  # nobody reads yet
            self._end = os.open(self._path, os.O_WRONLY | os.O_NONBLOCK)
        return self._end

    def wait(self):
        wait_until(self._come)

    def open(self):
        os.close(self._end)

    def __exit__(self, *_):
        self._folder.cleanup()


def own(message):
    return message.get("ext", {}).get("connector", {})


def of_request(messages, name):
    return [message for message in messages if own(message).get("request") == name]


def text_of(messages, channel):
    return "".join(message["data"] for message in messages if message["channel"] == RESPONSES + channel)


def brief(record):
    return {key: record[key] for key in ("life", "cause", "detail", "sentence", "ended")}


def is_completed(message):
    return message["channel"] == RESPONSES + "completion"


def is_over(message):
    return message["channel"] == STATES and message["data"]["state"] in ("dead", "failed")


class WorkersTest(unittest.TestCase):
    def start(self, *arguments, **options):
        return self.enterContext(Workers(*arguments, **options))


class DeathTest(WorkersTest):
    def test_what_is_under_way_is_told_and_all_else_goes_on(self):
        rows = {  # how it dies: code, cause, detail
            "null-dereference": ("import ctypes; ctypes.string_at(0)", "signal", "SIGSEGV"),
            "native-stack": ("import ctypes, sys; sys.setrecursionlimit(10 ** 9)\n"
                             "f = ctypes.CFUNCTYPE(None)(lambda: f())\nf()", "signal", "SIGSEGV"),
            "abort": ("os.abort()", "signal", "SIGABRT"),
            "kill": ("os.kill(os.getpid(), 9)", "signal", "SIGKILL"),
            "alarm": ("import signal, time; signal.alarm(1)\ntime.sleep(60)", "signal", "SIGALRM"),
            "exit-0": ("os._exit(0)", "exit status", "status 0"),
            "exit-3": ("os._exit(3)", "exit status", "status 3"),
        }
        server = self.start()
        session = self.enterContext(Session(server, RESPONSES + "**", STATES))
        other_gate = self.enterContext(Gate())
        self.assertEqual(server.request("/interpreters", {"id": "other"})[0], 201)
        other = server.later_eval("kept = 6\n" + other_gate.code + "kept * 7", "/interpreters/other")
        other_gate.wait()
        last_number = 0
        for name, (code, cause, detail) in rows.items():
            with self.subTest(name), Gate() as gate:
                status, info = server.restart().result(LIMIT)  # three ends of its own would be too many
                self.assertEqual((status, info["state"]), (200, "ready"))
                body = f"print('last line')\nos.write(2, b'native words')\n{code}".replace("\n", "\n    ")
                session.stream(f"print('first')\n{gate.code}import os\ndef end():\n    {body}\nend()", name)
                came = session.until(lambda message: message["channel"] == RESPONSES + "output")
                gate.wait()
                call = server.later_eval("1")
                session.send("/service/connector/v1/Eval", data={"mcode": "1"})
                wait_until(lambda: server.metric("numora_requests_running ") == 3)
                gate.open()
                begin = time.monotonic()
                came += session.until(is_over)
                record = server.deaths()[0]
                self.assertEqual((record["cause"], record["detail"], record["inFlight"], record["life"]),
                                 (cause, detail, 3, info["life"]))
                self.check_record(record, name)
                self.check_told(came, record, name)
                self.assertEqual(call.result(LIMIT), (502, {"error": record["sentence"], "death": brief(record)}))

                session.stream("print('end' in dir())", "next")
                came += session.until(is_completed)
                self.assertEqual(text_of(of_request(came, "next"), "output"), "False\n")
                self.assertLess(time.monotonic() - begin, 10)
                numbers = [own(message)["seq"] for message in came if "seq" in own(message)]
                self.assertEqual(numbers, sorted(set(numbers)))
                self.assertGreater(numbers[0], last_number)
                last_number = numbers[-1]
        other_gate.open()
        self.assertEqual(other.result(LIMIT)[1]["responseStr"], "42\n")

    def check_record(self, record, name):
        sentence = record["sentence"]
        self.assertTrue(sentence.startswith('The interpreter "default" has died: '), sentence)
        self.assertTrue(sentence.endswith(". Its variables are lost; the next request starts it anew."), sentence)
        self.assertIn("def end()", record["request"]["code"])
        self.assertEqual(record["request"]["uuid"], name)
        self.assertIn("first\nlast line\n", record["output"])
        self.assertIn("native words", record["output"] + record["rest"])
        if record["detail"] in ("SIGSEGV", "SIGABRT"):
            self.assertRegex(record["trace"], r"in (end|<lambda>)\n")

    def check_told(self, came, record, name):
        sentence, death = record["sentence"], brief(record)
        answer = next(message for message in came if message["channel"] == "/service/connector/v1/Eval")
        self.assertEqual((answer["successful"], answer["error"], own(answer)["death"]),
                         (False, "502:/service/connector/v1/Eval:" + sentence, death))
        stream = of_request(came, name)
        self.assertTrue("first\nlast line\n".startswith(text_of(stream, "output")))
        self.assertEqual(text_of(stream, "error").replace("native words", ""), sentence + "\n")
        self.assertEqual(text_of(stream, "completion"), "Done: failure")
        self.assertEqual([own(message)["death"] for message in stream if "death" in own(message)], [death] * 2)
        self.assertEqual(came[-1]["data"],
                         {"id": "default", "life": record["life"], "state": "dead", "death": record})

    def test_it_dies_idle_at_a_prompt_or_while_it_starts(self):
        server = self.start()
        with Session(server, RESPONSES + "**", STATES) as session:
            def kill():
                os.kill(server.process(), signal.SIGKILL)
                return session.until(is_over)
            server.restart().result(LIMIT)
            told = session.until(lambda message: message["data"]["state"] == "ready")
            self.assertEqual([(message["data"]["state"], bool(message["data"]["death"])) for message in told],
                             [("stopping", False), ("dead", True), ("starting", False), ("ready", False)])
            death = kill()[-1]["data"]["death"]
            self.assertEqual(death["request"], None)
            self.assertEqual(death["sentence"], 'The interpreter "default" has died: SIGKILL (killed). '
                             "Its variables are lost; the next request starts it anew.")
            session.stream("input('Name? ')", "asks")
            session.until(lambda m: m["channel"] == RESPONSES + "iqminput" and m["data"] == "INPUT_PROMPT")
            came = kill()
            self.assertEqual(text_of(came, "completion"), "Done: failure")
            self.assertEqual(text_of(came, "iqminput"), "BASE_PROMPT")
            self.assertEqual(server.eval("6 * 7"), "42\n")
            pid, restarted = server.hold_start()
            waiting = server.later_eval("6 * 7")
            wait_until(lambda: server.metric("numora_requests_queued ") == 1)
            os.kill(pid, signal.SIGKILL)
            for answer in restarted, waiting:
                status, body = answer.result(LIMIT)
                self.assertEqual((status, body["error"]), (503, 'The interpreter "default" could not start: '
                                                           "SIGKILL (killed). The next request tries it again."))
            self.assertEqual(server.eval("6 * 7"), "42\n")

    def test_three_bad_ends_need_a_restart(self):
        server = self.start()
        for _ in range(3):
            self.assertEqual(server.later_eval("import os; os._exit(3)").result(LIMIT)[0], 502)
        wait_until(lambda: server.get()["state"] == "failed")
        status, body = server.later_eval("1").result(LIMIT)
        self.assertEqual((status, body["error"]), (503, server.deaths()[0]["sentence"]))
        self.assertTrue(body["error"].endswith("Its variables are lost, and it stays ended until a client restarts it."), body["error"])
        self.assertEqual(server.request("/readyz")[0], 503)
        self.assertEqual(server.restart(force=False).result(LIMIT)[0], 200)
        self.assertEqual(server.eval("6 * 7"), "42\n")

    def test_code_that_spoils_its_process(self):
        every_own = "import os\nfor fd in range(500, 600):\n    try: %s\n    except OSError: pass\n"
        rows = {
            "closes all": ("import os; os.closerange(3, 65536)", "closed the link"),
            "writes garbage": (every_own % "os.write(fd, b'\\xff' * 64)", "closed the link"),
            "spoils the black box": (every_own % "os.ftruncate(fd, 0)" +
                                     every_own % "os.pwrite(fd, b'\\xff' * 131072, 0)" + "os.abort()", "signal"),
            "child": ("import os, time\nif not os.fork(): time.sleep(60)\nos.abort()", "signal"),
            "100 children": ("import os, subprocess\n"
                             "for _ in range(100): subprocess.Popen(['sleep', '60'])\nos.abort()", "signal"),
            "child in a session of its own": (
                "import os, time\nif not os.fork():\n    os.setsid()\n    print(os.getpid())\n    time.sleep(60)\n"
                "import subprocess\n"
                "print(subprocess.Popen(['sleep', '60'], start_new_session=True, close_fds=False).pid)\nos.abort()",
                "signal"),
        }
        server = self.start()
        for name, (code, cause) in rows.items():
            with self.subTest(name):
                status, body = server.later_eval(code).result(LIMIT)
                self.assertEqual((status, body["death"]["cause"]), (502, cause))
                record = server.deaths()[0]
                wait_until(lambda: not set(processes(2, record["pid"]).values()) - {"Z", "X"})  # killed, not gone yet
                if "child" in name:
                    self.assertEqual(record["childrenKilled"], {"child": 1, "100 children": 100}.get(name, 0))
                if name.endswith("own"):  # it is nobody's any more, and holds nothing up
                    escaped = list(map(int, record["output"].split()))
                    self.assertEqual([is_alive(pid) for pid in escaped], [True, True])
                    for pid in escaped:
                        os.kill(pid, signal.SIGKILL)
                self.assertEqual(server.restart().result(LIMIT)[0], 200)

    def test_silent_and_deaf_ones_are_told_and_only_a_restart_ends_them(self):
        rows = {"trace": "", "handler replaced": "import signal; signal.signal(signal.SIGRTMIN + 1, signal.SIG_IGN)\n"}
        stopped, *deaf = (self.start() for _ in range(1 + len(rows)))
        silent = stopped.later_eval("import os, signal\nos.kill(os.getpid(), signal.SIGSTOP)\n6 * 7")
        code = ("import ctypes\nmutex = ctypes.create_string_buffer(64)\ndef holds_the_lock():\n"
                "    while True: ctypes.PyDLL(None).pthread_mutex_lock(mutex)\nholds_the_lock()")
        calls = [server.later_eval(before + code) for server, before in zip(deaf, rows.values())]
        for server, call, name in zip(deaf, calls, rows):
            with self.subTest(name):
                wait_until(lambda: server.get()["health"] == "deaf")
                info = server.get()
                self.assertEqual((info["state"], info["request"]["type"]), ("ready", "connector/v1/Eval"))
                self.assertEqual(server.later("/connector/v1/Interrupt", {}).result(LIMIT)[0], 200)
                self.assertEqual(call.result(LIMIT)[0], 200)
                call = server.later_eval("1")  # waits for its end
                wait_until(lambda: server.metric("numora_requests_running ") == 1)
                status, info = server.restart(force=name != "trace").result(LIMIT)
                self.assertEqual((status, info["life"]), (200, 2))
                record = server.deaths()[0]
                self.assertEqual(record["cause"], "killed by a client")
                if name == "trace":  # it was asked to end first
                    self.assertIn(call.result(LIMIT)[0], (502, 503))
                    self.assertIn("in holds_the_lock\n", record["trace"])
                else:
                    self.assertEqual(call.result(LIMIT), (502, {"error": record["sentence"], "death": brief(record)}))
                self.assertEqual(server.eval("6 * 7"), "42\n")
        wait_until(lambda: stopped.get()["health"] == "silent")
        self.assertEqual(stopped.get()["state"], "ready")
        os.kill(stopped.process(), signal.SIGCONT)
        self.assertEqual(silent.result(LIMIT)[1]["responseStr"], "42\n")
        wait_until(lambda: stopped.get()["health"] == "ok")

    def test_memory_beyond_the_limit_is_an_error_of_the_code(self):
        server = self.start()
        self.assertEqual(server.request("/interpreters", {"id": "small", "memoryMiB": 100})[0], 201)
        code = "try: print(len(bytearray(%d << 20)))\nexcept MemoryError: print('none left')"
        for size, expected in (50, f"{50 << 20}\n"), (200, "none left\n"):
            answer = server.later_eval(code % size, "/interpreters/small").result(LIMIT)[1]
            self.assertEqual(answer["responseStr"], expected)


class RestartTest(WorkersTest):
    def test_restarts_whenever_they_are_asked_for_give_one_that_is_ready(self):
        server = self.start()
        server.eval("x = 1")
        with self.subTest("twice"):
            answers = [server.restart(force=False), server.restart(force=False)]
            self.assertLessEqual({answer.result(LIMIT)[1]["life"] for answer in answers}, {2, 3})
        with self.subTest("during a start"):
            pid, first = server.hold_start()
            self.assertEqual(server.restart().result(LIMIT), first.result(LIMIT))
            self.assertFalse(is_alive(pid))
        with self.subTest("during a death"):
            life = server.get()["life"]
            os.kill(server.process(), signal.SIGKILL)
            self.assertGreater(server.restart(force=False).result(LIMIT)[1]["life"], life)
        with self.subTest("another life"):
            life = server.get()["life"]
            self.assertEqual(server.restart(life=life - 1).result(LIMIT)[0], 409)
            self.assertEqual(server.later_eval("x = 2", **{LIFE: str(life - 1)}).result(LIMIT)[0], 409)
            answer = server.later_eval("'x' in dir()", **{LIFE: str(life)}).result(LIMIT)[1]
            self.assertEqual(answer["responseStr"], "False\n")
            self.assertEqual(server.restart(life=life).result(LIMIT)[1]["life"], life + 1)
        with self.subTest("requests during a start"):
            pid, restarted = server.hold_start()
            answers = []
            for i in range(5):
                answers.append(server.later_eval("n = globals().get('n', 0) + 1; n"))
                wait_until(lambda: server.metric("numora_requests_queued ") == i + 1)
            os.kill(pid, signal.SIGCONT)
            self.assertEqual(sorted(answer.result(LIMIT)[1]["responseStr"] for answer in answers),
                             [f"{i + 1}\n" for i in range(5)])
            self.assertEqual(restarted.result(LIMIT)[0], 200)

    def test_many_deaths_leave_nothing_in_the_server(self):
        server = self.start()

        def threads():
            with open(f"/proc/{server.pid}/status") as status:
                return next(int(line.split()[1]) for line in status if line.startswith("Threads:"))
        server.restart().result(LIMIT)
        before = threads()
        # Nobody may look at its descriptors, but more than these it cannot have.
        limit = resource.prlimit(server.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(server.pid, resource.RLIMIT_NOFILE, (64, limit[1]))
        end = time.monotonic() + 15
        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            def die():
                while server.get()["life"] < 200 and time.monotonic() < end:
                    self.assertEqual(server.restart().result(LIMIT)[0], 200)
            for worker in [pool.submit(die) for _ in range(4)]:
                worker.result()
        self.assertGreater(server.get()["life"], 60)
        self.assertEqual(server.eval("6 * 7"), "42\n")
        self.assertEqual(len(server.processes()), 1)
        wait_until(lambda: threads() <= before)

    def test_a_killed_server_leaves_no_process(self):
        server = self.start()
        server.eval("import subprocess; p = subprocess.Popen(['sh', '-c', 'sleep 60 & sleep 60'])")
        worker = server.process()
        wait_until(lambda: len(processes(2, worker)) == 4)
        left = list(processes(2, worker))
        server.end(signal.SIGKILL)
        wait_until(lambda: not any(map(is_alive, left)))

    def test_a_replaced_program_goes_on(self):
        with tempfile.TemporaryDirectory() as folder:
            program = shutil.copy(NUMORA, os.path.join(folder, "numora"))
            server = self.start(program=program)
            server.eval("1")
            shutil.copy("/bin/false", program + ".new")
            os.replace(program + ".new", program)
            self.assertEqual(server.restart().result(LIMIT)[0], 200)
            self.assertEqual(server.eval("6 * 7"), "42\n")

    def test_code_sees_no_secrets_of_the_server(self):
        def without_capabilities():  # with which the superuser may look into all processes
            for number in range(64):
                ctypes.CDLL(None).prctl(PR_CAPBSET_DROP, number)
        server = self.start(token=False, environment={"NUMORA_TOKEN": TOKEN}, preexec_fn=without_capabilities)
        by_flag = self.start(preexec_fn=without_capabilities)
        look = ("import os\nfor name in 'environ', 'cmdline', 'mem', 'maps', 'fd/0', 'fd/10':\n"
                "    try: print(name, open(f'/proc/{os.getppid()}/{name}', 'rb').read())\n"
                "    except OSError as error: print(name, error.strerror)\n"
                "print(dict(os.environ), open('/proc/self/environ').read())")
        for each in server, by_flag:
            seen = each.eval(look)
            self.assertNotIn(TOKEN, seen)
            for name in "environ", "mem", "maps", "fd/0", "fd/10":
                self.assertIn(name + " Permission denied\n", seen)
        links = ("import os\ndef links():\n    for fd in os.listdir('/proc/self/fd'):\n"
                 "        try: print(os.readlink('/proc/self/fd/' + fd).split(':')[0], end=' ')\n"
                 "        except OSError: pass\nlinks()")
        self.assertEqual(server.eval(links).split().count("socket"), 2)
        child = server.eval("import subprocess\nprint(subprocess.run(['/bin/ls', '-l', '/proc/self/fd'], "
                            "close_fds=False, stdout=subprocess.PIPE).stdout.decode())")
        self.assertNotIn("socket", child)
        self.assertNotIn("memfd", child)
        self.assertEqual(child.count(" -> "), 4, child)  # three, and the folder

    def test_at_any_moment_a_prefix_the_sentence_and_failure_come_once(self):
        lines = [f"{i}\n" for i in range(2000)]
        server = self.start()
        random.seed(time.time_ns())
        end = time.monotonic() + 15
        with Session(server, RESPONSES + "**", STATES) as session:
            for trial in range(50):
                if time.monotonic() > end:
                    break
                server.restart().result(LIMIT)
                with self.subTest(trial):
                    pid = server.process()
                    session.stream("for i in range(2000): print(i)", f"r{trial}")
                    call = server.later_eval("6 * 7")
                    time.sleep(random.random() * 0.1)
                    os.kill(pid, signal.SIGKILL)
                    status, body = call.result(LIMIT)
                    came = session.until(lambda m: is_over(m) and m["data"]["death"]["pid"] == pid)
                    record = came[-1]["data"]["death"]
                    stream = of_request(came, f"r{trial}")
                    text, errors = text_of(stream, "output"), text_of(stream, "error")
                    self.assertTrue("".join(lines).startswith(text))
                    if text_of(stream, "completion") == "Done: success":
                        self.assertEqual((len(text), errors), (len("".join(lines)), ""))
                    else:
                        self.assertEqual((text_of(stream, "completion"), errors),
                                         ("Done: failure", record["sentence"] + "\n"))
                    if status == 200:  # it has run before, or in the next life
                        self.assertEqual(body["responseStr"], "42\n")
                    else:
                        self.assertEqual((status, body["error"]), (502, record["sentence"]))
