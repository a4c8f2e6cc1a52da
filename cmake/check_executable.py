"""Checks a program that ships: imports, hardening, sections, resources and size.
Usage: check_executable.py FILE VERSION MAX_SIZE [NM SYMBOLS]; NM SYMBOLS is the command that lists its symbols"""

import re
import struct
import subprocess
import sys

SYSTEM_DLLS = {f"{name}.dll" for name in ("advapi32", "kernel32", "msvcrt", "ntdll", "ole32", "oleaut32", "shell32",
                                          "shlwapi", "user32")}
START_DLLS = {"kernel32.dll", "msvcrt.dll", "ntdll.dll"}  # any other takes as long to load as the rest of a start
CHARACTERISTICS = {"high-entropy ASLR": 0x0020, "ASLR": 0x0040, "DEP": 0x0100}
WRITABLE, EXECUTABLE = 0x80000000, 0x20000000

path, version, max_size, *list_symbols = sys.argv[1:]
data = open(path, "rb").read()
faults = []


def u32(at):
    return struct.unpack_from("<I", data, at)[0]


def u16(at):
    return struct.unpack_from("<H", data, at)[0]


header = u32(0x3C)
optional = header + 24
section_table = optional + u16(header + 20)
sections = []
for i in range(u16(header + 6)):
    name, size, address, raw_size, raw = struct.unpack_from("<8s4I", data, section_table + 40 * i)
    sections.append((name.rstrip(b"\0").decode(), address, max(size, raw_size), raw))
    flags = u32(section_table + 40 * i + 36)
    if flags & WRITABLE and flags & EXECUTABLE:
        faults.append(f"section {sections[-1][0]} is both writable and executable")


def offset(address):
    for _, start, size, raw in sections:
        if start <= address < start + size:
            return raw + address - start
    raise ValueError(f"address {address:x} is in no section")


def first_value(address):
    """The value at the address when the program starts: zero if the file does not hold the section's content."""
    return any(raw for _, start, size, raw in sections if start <= address < start + size) and u32(offset(address))


flags = u16(optional + 70)
faults += [f"no {name}" for name, bit in CHARACTERISTICS.items() if not flags & bit]
if u32(optional + 112 + 5 * 8) == 0:
    faults.append("no relocations, but ASLR needs them")

imports = set()
at = offset(u32(optional + 112 + 8))
while u32(at + 12):
    name = offset(u32(at + 12))
    imports.add(data[name : data.index(b"\0", name)].decode().lower())
    at += 20
faults += [f"loads {name} at its start; load it on the first call with uactask_delay_load"
           for name in sorted(imports & SYSTEM_DLLS - START_DLLS)]
# Not every linker lists the DLLs that are loaded on the first call in a table.
imports |= {name.decode().lower() for name in re.findall(rb"[\w.-]+\.dll(?=\0)", data)}
faults += [f"imports {name}, which is not among the system DLLs allowed" for name in sorted(imports - SYSTEM_DLLS)]

# Without it the first call that loads a DLL crashes if the linker made the import table read-only.
DELAY_LOAD_HOOK = "__pfnDliNotifyHook2"  # a pointer
if list_symbols:
    symbols = subprocess.run(list_symbols, check=True, capture_output=True, text=True).stdout
    hook = re.search(rf"^(\w+) [A-Z] {DELAY_LOAD_HOOK}$", symbols, re.M)
    image_base = u32(optional + 24) | u32(optional + 28) << 32
    if hook and not first_value(int(hook.group(1), 16) - image_base):
        faults.append(f"loads DLLs on the first call, but lacks {DELAY_LOAD_HOOK}. Add cmake/delay_load_hook.cpp.")

if b'level="asInvoker"' not in data:
    faults.append("no manifest")
if version.encode("utf-16-le") not in data:
    faults.append(f"no version {version} in its resources")
if len(data) > int(max_size):
    faults.append(f"{len(data)} bytes, but at most {max_size} are allowed")

print(f"{path}: {len(data)} bytes, imports {', '.join(sorted(imports))}")
sys.exit("\n".join(faults) if faults else 0)
