"""Folders and virtual environments of interpreters."""

import os
import tempfile
import unittest

from numora_program import Server, run

WHERE = """
import importlib.util, os, shutil, subprocess, sys
found = subprocess.run(["python", "-c", "import sys; print(sys.prefix)"], capture_output=True, text=True).stdout
print(sys.prefix, os.path.dirname(sys.executable), found.strip(), os.getcwd(),
      "numpy" if importlib.util.find_spec("numpy") else "no numpy")
"""


def make_environment(folder, version="3.11.2", system="false"):
    os.makedirs(os.path.join(folder, "bin"))
    os.symlink("/usr/bin/python3.11", os.path.join(folder, "bin", "python"))
    with open(os.path.join(folder, "pyvenv.cfg"), "w") as file:
        file.write(f"home = /usr/bin\ninclude-system-site-packages = {system}\nversion = {version}\n")


class WorkplaceTest(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory()
        self.addCleanup(place.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        self.root = os.path.realpath(place.name)
        os.chdir(self.root)
        make_environment("own")
        make_environment("open", system="true")
        make_environment("later", version="3.12.1")
        os.mkdir("lab")

    def where(self, venv, folder="", packages="no numpy"):
        prefix, folder = os.path.join(self.root, venv), os.path.join(self.root, folder).rstrip("/")
        return f"{prefix} {prefix}/bin {prefix} {folder} {packages}\n"

    def test_code_is_in_the_environment_and_the_folder_that_were_named(self):
        rows = {
            "named": (["--venv", "own", "--folder", "lab"], {}, self.where("own", "lab")),
            "active": ([], {"VIRTUAL_ENV": self.root + "/open"}, self.where("open", packages="numpy")),
            "named wins": (["--venv", "own"], {"VIRTUAL_ENV": self.root + "/later"}, self.where("own")),
        }
        for name, (options, environment, expected) in rows.items():
            with self.subTest(name):
                self.assertEqual(run("eval", *options, WHERE, **environment), (0, expected, ""))
            for form in ([], ["--in-process"]):
                with self.subTest(name, form=form), Server(*options, *form, environment=environment) as server:
                    self.assertEqual(run("eval", "--url", server.url, WHERE), (0, expected, ""))

    def test_an_interpreter_that_names_its_own_has_that(self):
        with open("settings.toml", "w") as file:
            file.write("[interpreters.lab]\nvenv = 'open'\n")
        with Server("--venv", "own", "--folder", "lab", "--config", "settings.toml") as server:
            expected = self.where("open", "lab", "numpy")
            self.assertEqual(run("eval", "--url", server.url, "--interpreter", "lab", WHERE), (0, expected, ""))

    def test_what_cannot_be_used_is_refused(self):
        other = f"The virtual environment {self.root}/later is for Python 3.12; it must be for Python 3.11, which is the interpreter's."
        rows = {
            "another version": (["--venv", "later"], {}, "--venv: " + other),
            "an active one of another version": ([], {"VIRTUAL_ENV": self.root + "/later"}, "VIRTUAL_ENV: " + other),
            "no environment": (["--venv", "lab"], {}, f"--venv: The folder {self.root}/lab is no virtual environment."),
            "no folder": (["--folder", "bin"], {}, "--folder must be an existing folder: bin"),
        }
        for name, (options, environment, expected) in rows.items():
            for command in (["eval", "1"], ["call", "abs", "1"], ["serve", "--port", "0"]):
                with self.subTest(name, command=command):
                    self.assertEqual(run(*command, *options, **environment), (2, "", f"numora: {expected}\n"))
        refused = "--venv and --folder must not be given with a server, whose interpreters have their own"
        self.assertEqual(run("eval", "--url", "http://127.0.0.1:1/?token=" + 16 * "x", "--venv", "own", "1"),
                         (2, "", f"numora: {refused}\n"))


if __name__ == "__main__":
    unittest.main()
