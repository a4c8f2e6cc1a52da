"""Checks that each folder includes only its own headers and those of what its line in CMakeLists.txt USES.
Usage: check_includes.py, in the project's root"""

import pathlib
import re
import sys

folders = {}  # the folder of each library, by the library's name
allowed = {}  # the folders that each folder may include from

for kind, name, arguments in re.findall(r"^ *uactask_(library|program)\((\w+)([^)]*)\)",
                                        pathlib.Path("CMakeLists.txt").read_text(), re.MULTILINE):
    named = re.search(r"\bFOLDER (\w+)", arguments)
    used = re.search(r"\bUSES ([a-z_\s]+)", arguments)
    folder = named.group(1) if named else name
    if kind == "library":
        folders[name] = folder
    allowed.setdefault(folder, {folder}).update(folders[use] for use in (used.group(1).split() if used else ()))

faults = []
for folder in allowed:
    for path in sorted([*pathlib.Path(folder).glob("*.cpp"), *pathlib.Path(folder).glob("*.h")]):
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            include = re.match(r'#include "([^/"]*)', line)
            if include and include.group(1) not in allowed[folder]:
                faults.append(f"{path}:{number}: {line} is not among what {folder} USES in CMakeLists.txt")

if not allowed:
    faults.append("CMakeLists.txt has no uactask_library and no uactask_program")
sys.exit("\n".join(faults) if faults else 0)
