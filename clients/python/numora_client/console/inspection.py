"""Text about an object, as numora.inspect describes it, and about the variables."""

from __future__ import annotations

from typing import Any


def description(found: dict[str, Any], source: str) -> str:
    """With its source, where that is not empty."""
    name, signature = found["name"], found.get("signature")
    place = found.get("source_file") or ""
    if place and found.get("line"):
        place += f", line {found['line']}"
    rows = [("Call", name + signature if signature else ""), ("Type", found.get("type") or ""),
            ("Value", found.get("text") or ""), ("File", place)]
    text = "".join(f"{title + ':':<7}{_indented(value)}\n" for title, value in rows if value)
    body = source or found.get("doc") or ""
    return text + ("\n" + body.rstrip("\n") + "\n" if body else "")


def _indented(value: str) -> str:
    return value.replace("\n", "\n" + 7 * " ")


def table(variables: list[dict[str, Any]], width: int) -> str:
    """The variables, one a line."""
    if not variables:
        return "There are no variables.\n"
    names = max(len(row["name"]) for row in variables)
    kinds = max(len(row["class"]) for row in variables)
    lines = (f"{row['name']:<{names}}  {row['class']:<{kinds}}  {row['text']}" for row in variables)
    return "".join(line.replace("\n", " ")[: max(20, width)].rstrip() + "\n" for line in lines)
