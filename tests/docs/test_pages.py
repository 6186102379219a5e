"""The commands that the pages show, each run as it stands; what a page shows below one is what it prints, "…" for what
varies. The examples of wire.md and those of the clients' pages have tests of their own, in tests/clients."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from numora_program import LIMIT, NUMORA, Server

ROOT = pathlib.Path(__file__).parent.parent.parent
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
BLOCK = re.compile(r"(?:^    .*\n|^\n(?=    ))+", re.MULTILINE)
COMMAND = re.compile(r"\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)")
# A block without "$ " that begins in this way is commands alone, one a line.
PLAIN = re.compile(r"(\./\w+|numora serve --|curl|cmake|scripts/\w+|systemctl|sudo|apt-get|ninja|pip|npm|podman|docker|/usr/bin/python3|build/\S+)\b")

# What others run, or what is for a whole machine.
ELSEWHERE = re.compile(r"\./test|cmake|ninja|scripts/|systemctl|sudo|apt-get|pip|npm|podman|docker|build/example/host|/usr/bin/python3 bench")
# What these show depends on what has happened on the server of whoever wrote the page.
OTHER_STATE = re.compile(r"numora (interpreters$|deaths|status|restart|interrupt)")


def commands_of(text):
    """(line of the page, command, what is shown of its output) of each."""
    for block in BLOCK.finditer(text):
        lines = re.sub(r"^    ", "", block[0], flags=re.MULTILINE)
        first = text.count("\n", 0, block.start()) + 1
        if lines.lstrip("\n").startswith("$ "):
            for found in COMMAND.finditer(lines):
                yield first + lines.count("\n", 0, found.start()), found[1], found[2]
        elif PLAIN.match(lines.lstrip("\n")):
            for found in re.finditer(r"((?:.*\\\n)*.+)\n", lines):
                yield first + lines.count("\n", 0, found.start()), found[1], ""


class PagesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        folder = pathlib.Path(self.folder.name)
        (folder / "run").symlink_to(NUMORA)
        (folder / "numora").symlink_to(NUMORA)
        (folder / ".curlrc").write_text("fail-with-body\nsilent\nshow-error\n")

    def here(self, text, server):
        """With the address, the token and folders of this server for those of the page."""
        text = re.sub(r"e48d(16a3710dd7fea7facd43a42bda3ed3299bb8|…)|\bTOKEN\b(?!=)|(?<=Bearer )…", server.token, text)
        return text.replace(":8350", f":{server.port}").replace("/srv/lab1", self.folder.name)

    def start_server(self, command, environment):
        """The line that a server prints; it ends then."""
        process = subprocess.Popen(["bash", "-c", f"exec {command} --port 0"], cwd=self.folder.name, env=environment, text=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        with process:
            line = process.stdout.readline()
            process.terminate()
            _, errors = process.communicate(timeout=LIMIT)
        self.assertRegex(line, "^Listening on http", errors)
        return line

    def run_page(self, page):
        commands = [found for found in commands_of(page.read_text()) if not ELSEWHERE.match(found[1])]
        with Server("--log-level", "error", token=False) as server:
            environment = dict(os.environ, NUMORA_URL=f"http://127.0.0.1:{server.port}", NUMORA_TOKEN=server.token,
                               PATH=self.folder.name + ":" + os.environ["PATH"], HOME=self.folder.name)
            done = None
            for (line, command, shown), after in zip(commands, [*commands[1:], (0, "", "")]):
                with self.subTest(page=page.name, line=line, command=command):
                    if re.fullmatch(r"numora serve|\./run", command):
                        output = server.line
                    elif command.startswith("numora serve --"):
                        output = self.start_server(command, environment)
                    elif command == "echo $?":
                        output = str(done.returncode)
                    elif file := re.fullmatch(r"cat (\w+\.py)", command):  # what follows needs it
                        (pathlib.Path(self.folder.name) / file[1]).write_text(shown)
                        continue
                    else:
                        # Lines of a session are typed; its banner is for terminals.
                        typed = re.findall(r"^(?:>>>|\.\.\.) (.*\n)", shown, re.MULTILINE)
                        if typed:
                            shown = re.sub(r"\A(?s:.*?)(?=>>>)|^(?:>>>|\.\.\.) .*\n", "", shown, flags=re.MULTILINE)
                        done = subprocess.run(["bash", "-euo", "pipefail", "-c", self.here(command, server)],
                                              cwd=self.folder.name, env=environment, timeout=LIMIT, text=True,
                                              input="".join(typed), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                        output = done.stdout
                        if after[1] != "echo $?":
                            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                    if shown and not OTHER_STATE.match(command):
                        expected = re.escape(self.here(shown, server).rstrip()).replace("…", ".*")
                        self.assertRegex(output.rstrip(), rf"(?s)\A{expected}\Z")
        return len(commands)

    def test_commands_print_what_the_pages_show(self):
        count = sum(self.run_page(page) for page in PAGES if next(commands_of(page.read_text()), None))
        self.assertGreater(count, 15)


if __name__ == "__main__":
    unittest.main()
