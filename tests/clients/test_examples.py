"""The examples of the pages, each run as it stands; what a page shows below one is what it prints, "…" for what varies."""

import os
import pathlib
import re
import subprocess
import sys
import unittest

from numora_program import LIMIT, Server

HERE = pathlib.Path(__file__).parent
PAGES = [HERE.parent.parent / "docs" / "wire.md"]
EXAMPLE = re.compile(r"^```(sh|js|python)\n(.*?)^```\n(?:\n```text\n(.*?)^```\n)?", re.MULTILINE | re.DOTALL)
COMMANDS = {"sh": ["bash", "-euo", "pipefail", "-c"], "js": ["node", "--input-type=module", "-e"],
            "python": [sys.executable, "-c"]}


class ExamplesTest(unittest.TestCase):
    def test_print_what_the_pages_show(self):
        for page in PAGES:
            text = page.read_text()
            # One server for a page, as for whoever reads it.
            with Server("--log-level", "warning") as server:
                environment = dict(os.environ, NUMORA_URL=f"http://127.0.0.1:{server.port}", NUMORA_TOKEN=server.token)
                for example in EXAMPLE.finditer(text):
                    language, code, shown = example.groups()
                    line = text.count("\n", 0, example.start()) + 1
                    with self.subTest(page=page.name, line=line):
                        done = subprocess.run([*COMMANDS[language], code], cwd=HERE, env=environment, timeout=20,
                                              capture_output=True, text=True)
                        self.assertEqual((done.returncode, done.stderr if language != "sh" else ""), (0, ""), done.stdout)
                        pattern = re.escape((shown or "").rstrip()).replace("…", ".*?")
                        self.assertRegex(done.stdout.rstrip(), rf"\A{pattern}\Z")
                self.assertRegex(text, EXAMPLE)  # there are some


if __name__ == "__main__":
    unittest.main()
