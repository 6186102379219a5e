"""The public suite for kernels, every test of it."""

import unittest

import jupyter_kernel_test

import kernels


class ProtocolTest(jupyter_kernel_test.KernelTests):
    kernel_name = kernels.NAME
    language_name = "python"
    file_extension = ".py"

    code_hello_world = "print('hello, world')"
    code_stderr = "import sys; print('oops', file=sys.stderr)"
    completion_samples = [{"text": "zi", "matches": {"zip"}}, {"text": "import decima", "matches": {"decimal"}},
                          {"text": "x = 'ä😀'; divmo", "matches": {"divmod"}}]
    complete_code_samples = ["1", "print('a\\nb')", "for i in range(3):\n    print(i)\n\n", "%time 1", "!ls", "len?", ""]
    incomplete_code_samples = ["def f():", "'''", "(1,", "for i in range(3):\n    print(i)"]
    invalid_code_samples = ["import = 7n", "x = )", "def def"]
    code_page_something = "divmod?"
    code_generate_error = "raise ValueError('no')"
    code_execute_result = [{"code": "1 + 1", "result": "2"}, {"code": "1+2+3", "result": "6"},
                           {"code": "'ä😀\\n'", "result": "'ä😀\\n'"},
                           {"code": "from IPython.display import HTML; HTML('<b>x</b>')", "result": "<b>x</b>",
                            "mime": "text/html"},
                           {"code": "[n ** 2 for n in range(4)]", "result": "[0, 1, 4, 9]"}]
    code_display_data = [{"code": "from IPython.display import HTML, display; display(HTML('<b>x</b>'))", "mime": "text/html"},
                         {"code": "display({'application/json': {'a': 1}}, raw=True)", "mime": "application/json"},
                         {"code": "import matplotlib.pyplot as plot; plot.plot([3, 1, 2]); plot.show()", "mime": "image/png"}]
    code_history_pattern = "1?2*"
    supported_history_operations = ("tail", "range", "search")
    code_inspect_sample = "zip"
    code_clear_output = "from IPython.display import clear_output; clear_output()"


del jupyter_kernel_test.KernelTests  # it would be run by itself


if __name__ == "__main__":
    result = unittest.main(exit=False).result
    raise SystemExit(not result.wasSuccessful() or bool(result.skipped) or result.testsRun < 12)
