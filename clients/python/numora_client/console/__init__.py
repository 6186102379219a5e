"""A console at a terminal: `numora console`, or `python3 -m numora_client.console URL` for that of a server.

It needs the library `prompt_toolkit`, from 3.0.36; with `pygments` code is coloured while it is typed.
"""
