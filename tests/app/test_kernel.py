"""The kernel for notebooks as front ends find, start and end it; what it does in between is in tests/notebook."""

import json
import os
import pathlib
import signal
import tempfile
import time
import unittest

from numora_program import LIMIT, NUMORA, run, start


class KernelTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def kernel(self, *arguments):
        status, out, err = run("kernel", *arguments, JUPYTER_DATA_DIR=str(self.folder), JUPYTER_PATH="", VIRTUAL_ENV="")
        return status, (out + err).replace(str(self.folder), "DATA")

    def test_front_ends_find_what_is_installed(self):
        installed = self.folder / "kernels" / "lab"
        self.assertEqual(self.kernel("install", "--user", "--name", "Lab", "--url", "http://127.0.0.1:9/?token=secret"),
                         (0, "Installed the kernel in DATA/kernels/lab\nThe token is not in its files: NUMORA_TOKEN must "
                             "hold it where the front end runs.\n"))
        self.assertEqual(json.loads((installed / "kernel.json").read_text()), {
            "argv": [os.path.realpath(NUMORA), "kernel", "--url", "http://127.0.0.1:9/", "-f", "{connection_file}"],
            "display_name": "Numora (127.0.0.1:9)", "language": "python", "interrupt_mode": "message",
            "metadata": {"debugger": False}})
        self.assertTrue((installed / "logo-64x64.png").read_bytes().startswith(b"\x89PNG"))
        self.assertIn("lab\tNumora (127.0.0.1:9)\tDATA/kernels/lab\n", self.kernel("list")[1])
        self.assertEqual(self.kernel("install", "--user", "--name", "lab")[0], 0)  # it is replaced
        self.assertEqual(self.kernel("uninstall", "--name", "lab"), (0, "Removed DATA/kernels/lab\n"))
        self.assertFalse(installed.exists())

    def test_what_is_not_ours_stays(self):
        other = self.folder / "kernels" / "other"
        other.mkdir(parents=True)
        (other / "kernel.json").write_text('{"argv": ["python3", "kernel"]}')
        (self.folder / "file").touch()
        for arguments, problem in [
                (["install", "--user", "--name", "other"], "DATA/kernels/other exists and does not start this program: "
                                                           "--name must be another one"),
                (["uninstall", "--name", "other"], "there is no kernel of numora called other: see numora kernel list"),
                (["uninstall", "--name", ".."], "--name must consist of letters, digits and ._-, the first no dot: .."),
                (["install", "--name", "a/b"], "--name must consist of letters, digits and ._-, the first no dot: a/b"),
                (["install", "--prefix", str(self.folder / "file")],
                 "DATA/file/share/jupyter/kernels/numora cannot be written: Not a directory"),
                ([], "-f FILE is required")]:
            self.assertEqual(self.kernel(*arguments), (2, f"numora: {problem}\n"), arguments)
        self.assertTrue((other / "kernel.json").exists())

    def test_ports_are_written_back_and_a_signal_ends_it(self):
        file = self.folder / "connection.json"
        file.write_text('{"key": "k", "kernel_name": "numora"}')
        kernel = start("kernel", "-f", str(file))
        end = time.monotonic() + LIMIT
        while not json.loads(file.read_text()).get("hb_port") and time.monotonic() < end:
            self.assertIsNone(kernel.poll())
        self.assertEqual(file.stat().st_mode & 0o777, 0o600)
        kernel.send_signal(signal.SIGTERM)
        self.assertEqual((kernel.communicate(timeout=LIMIT), kernel.returncode), ((b"", b""), 0))


if __name__ == "__main__":
    unittest.main()
