"""The commands that the pages show, each run as it stands; what a page shows below one is what it prints, "…" for what
varies. The examples of wire.md and those of the clients' pages have tests of their own, in tests/clients."""

import os
import pathlib
import re
import signal
import subprocess
import tempfile
import unittest

from numora_program import LIMIT, NUMORA, Server

ROOT = pathlib.Path(__file__).parent.parent.parent
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
BLOCK = re.compile(r"(?:^    .*\n|^\n(?=    ))+", re.MULTILINE)
COMMAND = re.compile(r"\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)")
# A block without "$ " that begins in this way is commands alone, one a line.
PLAIN = re.compile(r"(\./\w+|curl|cmake|scripts/\w+|systemctl|sudo|apt-get|ninja|pip|npm|podman|docker|/usr/bin/python3|build/\S+)\b")

# What others run, or what is for a whole machine.
ELSEWHERE = re.compile(r"\./test|cmake|ninja|scripts/|systemctl|sudo|apt-get|pip|npm|podman|docker|build/example/host|/usr/bin/python3 bench")
# Numbers and lives of interpreters are those of whoever wrote the page.
OTHER_NUMBERS = re.compile(r"numora (interpreters$|deaths|status|restart)")


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

    def run_page(self, page):
        count = 0
        with Server("--log-level", "error") as server:
            environment = dict(os.environ, NUMORA_URL=f"http://127.0.0.1:{server.port}", NUMORA_TOKEN=server.token,
                               PATH=self.folder.name + ":" + os.environ["PATH"], HOME=self.folder.name)
            for line, command, shown in commands_of(page.read_text()):
                if ELSEWHERE.match(command):
                    continue
                count += 1
                with self.subTest(page=page.name, line=line, command=command):
                    expected = re.escape(self.here(shown, server).rstrip()).replace("…", ".*")
                    if re.fullmatch(r"numora serve|\./run", command):
                        if shown:
                            self.assertRegex(server.line.rstrip(), rf"\A{expected}\Z")
                        continue
                    done = subprocess.run(["bash", "-euo", "pipefail", "-c", self.here(command, server)],
                                          cwd=self.folder.name, env=environment, timeout=LIMIT, text=True,
                                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                    self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                    if shown and not OTHER_NUMBERS.match(command):
                        self.assertRegex(done.stdout.rstrip(), rf"(?s)\A{expected}\Z")
            server.stop(signal.SIGTERM)
        return count

    def test_commands_print_what_the_pages_show(self):
        count = sum(self.run_page(page) for page in PAGES if next(commands_of(page.read_text()), None))
        self.assertGreater(count, 15)


if __name__ == "__main__":
    unittest.main()
