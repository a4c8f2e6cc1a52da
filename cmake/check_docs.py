"""Checks the docs: links between files lead somewhere, and C++ in them is part of a program of docs/ or examples/, all
of which are built. Usage: check_docs.py, in the project's root"""

import glob
import os
import re
import sys

programs = [open(path, encoding="utf-8").read() for path in glob.glob("docs/*.cpp") + glob.glob("examples/*/*.cpp")]
faults = []
for path in glob.glob("*.md") + glob.glob("docs/*.md"):
    text = open(path, encoding="utf-8").read()
    for code in re.findall(r"^```cpp\n(.*?)^```", text, re.M | re.S):
        if not any(code in program for program in programs):
            faults.append(f"{path}: the C++ that begins with {code.splitlines()[0].strip()!r} is in no program of docs/"
                          " or examples/. Copy it from one.")
    for link in re.findall(r"\]\(([^)#:]+)[^):]*\)", text):
        if not os.path.exists(os.path.join(os.path.dirname(path), link)):
            faults.append(f"{path}: the link {link} leads nowhere")
sys.exit("\n".join(faults) if faults else 0)
