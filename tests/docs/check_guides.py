#!/usr/bin/env python3
"""Checks every code block of the README and the guides.

    check_guides.py VOALGO_DIR FILE.md ...

VOALGO_DIR holds the built tool. The first line of a block says how it is checked; each FILE.md has a scratch folder:

    ```sh            must run without error in that folder, with the tool on the PATH
    ```console       runs each line that starts with "$ "; its output must contain the lines below in that order ("..."
                     matches any lines, a final "~" the rest of a line); "$? N" is the exit code, otherwise 0
    ```json NAME     is saved as the file NAME
    ```python        must run without error in that folder
    ```sh ci         each line must occur in the scripts that check every change
    ```cpp           must occur word for word in a program of examples/, at any indentation, without its includes
    ```cmake         each line must occur in tests/packages/CMakeLists.txt
    ```text          is not code
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import textwrap

ROOT = pathlib.Path(__file__).resolve().parents[2]


def blocks(text):
    """(line number, words of the first line, body) of every fenced block."""
    for match in re.finditer(r"^```([^\n]*)\n(.*?)^```$", text, re.M | re.S):
        yield text.count("\n", 0, match.start()) + 1, match[1].split(), match[2]


def run(command, folder, env):
    return subprocess.run(["bash", "-euo", "pipefail", "-c", command], cwd=folder, env=env, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)


def same_line(stated, printed):
    stated, printed = stated.rstrip(), printed.rstrip()
    return printed.startswith(stated[:-1].rstrip()) if stated.endswith("~") else printed == stated


def printed_in_order(stated, printed):
    at, loose = 0, True
    for line in stated:
        if line == "...":
            loose = True
            continue
        while at < len(printed) and loose and not same_line(line, printed[at]):
            at += 1
        if at == len(printed) or not same_line(line, printed[at]):
            return line
        at, loose = at + 1, False
    return None


def check_console(body, folder, env):
    for session in re.split(r"^\$ ", body, flags=re.M)[1:]:
        command, *stated = session.rstrip("\n").split("\n")
        expected = 0
        if stated and stated[-1].startswith("$? "):
            expected = int(stated.pop()[3:])
        done = run(command, folder, env)
        if done.returncode != expected:
            return f"'{command}' exits with {done.returncode}:\n{done.stdout}"
        missing = printed_in_order(stated, done.stdout.split("\n"))
        if missing is not None:
            return f"'{command}' does not print '{missing}' there, but:\n{done.stdout}"
    return None


def missing_line(body, checked):
    lost = [line for line in body.splitlines() if line.strip() not in checked]
    return f"'{lost[0]}' is not checked" if lost else None


def check(words, body, folder, env, sources):
    kind = words[0] if words else ""
    if kind == "text":
        return None
    if kind == "json":
        (folder / words[1]).write_text(body)
        return None
    if kind == "console":
        return check_console(body, folder, env)
    if words == ["sh", "ci"]:
        scripts = (ROOT / ".ci/run").read_text() + (ROOT / "tests/packages/check.sh").read_text()
        return missing_line(body, scripts)
    if kind in ("sh", "python"):
        command = body if kind == "sh" else f"python3 - <<'PYTHON'\n{body}PYTHON"
        done = run(command, folder, env)
        return done.stdout if done.returncode else None
    if kind == "cpp":
        code = re.sub(r"^#include.*\n", "", body, flags=re.M).strip("\n")
        found = any(textwrap.indent(code, indent) in sources for indent in ("", "    "))
        return None if found else "occurs in no program of examples/"
    if kind == "cmake":
        return missing_line(body, (ROOT / "tests/packages/CMakeLists.txt").read_text())
    return "unknown kind of block"


def main(tool_dir, *files):
    sources = "".join(path.read_text() for path in sorted((ROOT / "examples").glob("*.cpp")))
    env = dict(os.environ, PATH=f"{pathlib.Path(tool_dir).resolve()}:{os.environ['PATH']}")
    checked, failed = 0, 0
    for name in files:
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            (folder / "examples").symlink_to(ROOT / "examples")
            for line, words, body in blocks(pathlib.Path(name).read_text()):
                fault = check(words, body, folder, env, sources)
                checked += 1
                failed += fault is not None
                if fault is not None:
                    print(f"{name}:{line}: {fault}")
    print(f"{checked} blocks, {failed} failed")
    return failed or not checked


if __name__ == "__main__":
    sys.exit(bool(main(*sys.argv[1:])))
