"""Notebooks that nbclient runs have the outputs that they have with ipykernel, which runs them beside ours."""

import asyncio
import base64
import json
import pathlib
import re
import struct
import unittest

import nbformat
from nbclient import NotebookClient
from nbclient.exceptions import CellExecutionError

import kernels
from numora_program import LIMIT

HERE = pathlib.Path(__file__).parent
# What no two runs have in common.
VARYING = [(re.compile(r"\x1b\[[0-9;]*m"), ""), (re.compile(r"\b0x[0-9a-f]{6,}"), "ADDRESS"), (re.compile(r"\b[0-9a-f]{32}\b"), "MODEL"),
           (re.compile(r"(?<=\()[^()]+, line \d+(?=\)$)"), "FILE")]


def plain(value):
    if isinstance(value, str):
        for pattern, instead in VARYING:
            value = pattern.sub(instead, value)
        return value
    if isinstance(value, dict):
        return {key: plain(part) for key, part in value.items()}
    return [plain(part) for part in value] if isinstance(value, list) else value


def size_of_png(text):
    data = base64.b64decode(text)
    assert data.startswith(b"\x89PNG") and data.endswith(b"IEND\xaeB`\x82"), data[:20]
    return struct.unpack(">II", data[16:24])


def comparable(output):
    output = plain(output)
    if output["output_type"] == "error":
        if output["ename"] == "StdinNotImplementedError":
            output["evalue"] = ""
        last = f"{output['ename']}: {output['evalue']}".replace(" (FILE)", "").rstrip(": ")
        output["traceback"] = last in "\n".join(output["traceback"])
    if "image/png" in output.get("data", {}):
        output["data"]["image/png"] = size_of_png(output["data"]["image/png"])
    return output


def joined(outputs):
    """Text of one stream is one text up to what is shown in between, however often the streams were flushed."""
    texts, result = {}, []
    for output in [*outputs, {"output_type": "end"}]:
        if output["output_type"] == "stream":
            texts[output["name"]] = texts.get(output["name"], "") + output["text"].replace("\r\n", "\n")
        else:
            result += [*sorted(texts.items()), output]
            texts = {}
    return result[:-1]


async def run(path, kernel):
    """The cells that code has, as far as they are run, and how it ended."""
    notebook = nbformat.read(path, nbformat.NO_CONVERT)
    end = None
    try:
        await NotebookClient(notebook, kernel_name=kernel, timeout=LIMIT, store_widget_state=False).async_execute()
    except CellExecutionError as error:
        end = error.ename, error.evalue
    nbformat.validate(notebook)
    return [cell for cell in notebook.cells if cell.cell_type == "code"], end


class NotebooksTest(unittest.TestCase):
    maxDiff = None

    def test_outputs_are_those_of_ipykernel(self):
        async def both(path):
            return await asyncio.gather(run(path, "python3"), run(path, kernels.NAME))

        paths = sorted(HERE.glob("*.ipynb"))
        self.assertEqual(3, len(paths))
        for path in paths:
            (expected, expected_end), (cells, end) = asyncio.run(both(path))
            self.assertEqual(expected_end, end, path.name)
            self.assertEqual(end is not None, path.stem == "failures")
            for theirs, ours in zip(expected, cells):
                with self.subTest(notebook=path.stem, code=ours.source):
                    self.assertEqual(theirs.execution_count, ours.execution_count)
                    self.assertLess(len(ours.outputs), len(theirs.outputs) + 5, "text is sent in small pieces")
                    self.assertEqual(*(json.dumps(joined(map(comparable, cell.outputs)), indent=1, ensure_ascii=False, sort_keys=True)
                                       for cell in (theirs, ours)))


if __name__ == "__main__":
    unittest.main()
