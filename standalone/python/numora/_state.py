"""Tells what the interpreter does."""

import _numora_host as _host


def state():
    prompt, question, text, is_password, evaluation, seconds = _host.state()
    return {
        "prompt": prompt,
        "number": evaluation or None,
        "seconds": seconds,
        "question": {"number": question, "prompt": text, "password": is_password} if question else None,
    }
