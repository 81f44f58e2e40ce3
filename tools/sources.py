"""What the checks share: the tracked files, and C++ text without comments and literals."""

import os
import re
import subprocess
import sys


def tracked(*endings):
    """The repository's files (relative paths) with one of the endings; all of them without any."""
    git = ["git", "-c", "safe.directory=*"]
    listed = subprocess.run(
        git + ["ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        stdout=subprocess.PIPE, check=True).stdout.decode()
    names = sorted(set(n for n in listed.split("\0") if n))
    return [n for n in names if not endings or n.endswith(endings)]


def read(path):
    """The text of a file; empty for a binary or a file that is gone."""
    try:
        with open(path, encoding="utf-8") as f:
            return f.read()
    except (UnicodeDecodeError, FileNotFoundError, IsADirectoryError):
        return ""


def refresh_copy(root, copy, change=lambda path, content: content):
    """Brings a copy of the tree up to date; files that are the same keep their time. What is copied
    is `change( path, bytes )`. "build" in the copy is left alone."""
    names = set(tracked())
    for path in names:
        if not os.path.isfile(os.path.join(root, path)):
            continue
        target = os.path.join(copy, path)
        with open(os.path.join(root, path), "rb") as f:
            wanted = change(path, f.read())
        if os.path.exists(target):
            with open(target, "rb") as f:
                if f.read() == wanted:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "wb") as f:
            f.write(wanted)
        os.chmod(target, os.stat(os.path.join(root, path)).st_mode)
    for place, folders, files in os.walk(copy):
        if place == copy:
            folders.remove("build") if "build" in folders else None
            continue
        for name in files:
            if os.path.relpath(os.path.join(place, name), copy) not in names:
                os.remove(os.path.join(place, name))


_noise = re.compile(
    r'//[^\n]*|/\*.*?\*/'                              # comments
    r'|R"(?P<d>[^\s()\\]{0,16})\(.*?\)(?P=d)"'         # raw strings
    r'|"(?:\\.|[^"\\\n])*"'                            # strings
    r"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"            # characters, but not 1'000
    r'|^[ \t]*#(?:\\\n|[^\n])*',                       # directives with their continuations
    re.S | re.M)


def bare(text):
    """C++ text without comments, literals and directives; every line keeps its number."""
    return _noise.sub(lambda m: "\n" * m.group(0).count("\n") or '""', text)


def finish(findings):
    """Prints the findings, one line each, and ends the program: 0 if there are none."""
    for finding in findings:
        print(finding)
    sys.exit(1 if findings else 0)
