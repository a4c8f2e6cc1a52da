"""Packs what was built into archives that are the same bytes whenever and wherever they are packed, and lists what is
linked into the programs. Usage: make_release.py SOURCE BUILD OUTPUT VERSION, with SOURCE_DATE_EPOCH in the environment

  uactask-VERSION-win64.zip       the programs, their docs and licences
  uactask-VERSION-dev-win64.zip   the same with headers, libraries and the CMake package
  uactask-VERSION-symbols.zip     the programs' debug symbols
  uactask-VERSION.spdx.json       what is linked in, with versions and licences (SPDX 2.3)
  SHA256SUMS
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import zipfile

SOURCE, BUILD, OUTPUT = (pathlib.Path(argument).absolute() for argument in sys.argv[1:4])
VERSION = sys.argv[4]
WHEN = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))
NAME = f"uactask-{VERSION}"

# What is linked in: name, licence, the Debian package that holds it, the programs (all, when none is named).
LINKED = [
    ("Boost", "BSL-1.0", None, ()),
    ("GCC runtime libraries", "GPL-3.0-or-later WITH GCC-exception-3.1", "g++-mingw-w64-x86-64-posix", ()),
    ("MinGW-w64 runtime", "ZPL-2.1", "mingw-w64-x86-64-dev", ()),
    ("winpthreads", "MIT AND BSD-3-Clause", "mingw-w64-x86-64-dev", ()),
    ("nlohmann-json", "MIT", "nlohmann-json3-dev", ("uactl",)),
]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def install(folder, *options):
    shutil.rmtree(folder, ignore_errors=True)
    run("cmake", "--install", str(BUILD), "--prefix", str(folder), *options)


def files_below(folder):
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


def pack(name, files):
    """A ZIP with one folder at its top, with nothing in it that depends on the machine."""
    top = name.removesuffix("-win64")
    with zipfile.ZipFile(OUTPUT / f"{name}.zip", "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for path in sorted(files):
            entry = zipfile.ZipInfo(f"{top}/{path}", WHEN[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if path.endswith(".exe") else 0o644) << 16
            entry.create_system = 3
            archive.writestr(entry, files[path])


def faults_of(name, files):
    """Paths of this machine in the files, and links of the docs that lead nowhere."""
    boost = (SOURCE / "build/boost").resolve()
    for path, data in files.items():
        for folder in {str(SOURCE), str(SOURCE.resolve()), str(BUILD), str(boost)}:
            if any(folder.encode(encoding) in data for encoding in ("utf-8", "utf-16-le")):
                yield f"{name}: {path} holds the path {folder}"
        if path.endswith(".md"):
            for link in re.findall(r"\]\(([^)#:]+)[^):]*\)", data.decode()):
                if os.path.normpath(os.path.join(os.path.dirname(path), link)) not in files:
                    yield f"{name}: {path} links {link}, which is not in it"


def boost_source():
    """The Debian source package that Boost for the target was built from (scripts/setup)."""
    return (SOURCE / "build/boost/package").read_text().strip()


def version_of(package):
    if package is not None:
        return run("dpkg-query", "-W", "-f=${Version}", package)
    header = (SOURCE / "build/boost/include/boost/version.hpp").read_text()
    return re.search(r'BOOST_LIB_VERSION "(\w+)"', header).group(1).replace("_", ".")


def bill_of_materials(programs):
    """SPDX: each program is a package, linked statically with the others."""

    def package(identity, name, version, licence, **more):
        return {"SPDXID": f"SPDXRef-{identity}", "name": name, "versionInfo": version, "filesAnalyzed": False,
                "downloadLocation": "NOASSERTION", "copyrightText": "NOASSERTION", "licenseConcluded": "NOASSERTION",
                "licenseDeclared": licence, **more}

    def relation(one, kind, other):
        return {"spdxElementId": f"SPDXRef-{one}", "relationshipType": kind, "relatedSpdxElement": f"SPDXRef-{other}"}

    packages, relations = [], []
    for name, data in programs.items():
        digest = hashlib.sha256(data).hexdigest()
        packages.append(package(name, f"{name}.exe", VERSION, "NOASSERTION", primaryPackagePurpose="APPLICATION",
                                checksums=[{"algorithm": "SHA256", "checksumValue": digest}]))
        relations.append(relation("DOCUMENT", "DESCRIBES", name))
    for name, licence, debian, users in LINKED:
        users = [user for user in programs if not users or user in users]
        if not users:
            continue
        identity, version = re.sub(r"\W", "-", name), version_of(debian)
        source = {"sourceInfo": f"Debian package {debian} {version}" if debian else f"Debian source package {boost_source()}"}
        packages.append(package(identity, name, version, licence, **source))
        relations += [relation(user, "STATIC_LINK", identity) for user in users]
    content = hashlib.sha256(json.dumps(packages).encode()).hexdigest()
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": NAME,
            "documentNamespace": f"https://spdx.org/spdxdocs/{NAME}-{content}",
            "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", WHEN),
                             "creators": ["Tool: uactask-make-release"]},
            "packages": packages, "relationships": relations}


shutil.rmtree(OUTPUT, ignore_errors=True)
OUTPUT.mkdir(parents=True)

stage = BUILD / "stage"
install(stage, "--component", "programs")
# For users the programs stand at the top, and the docs beside them.
users = {re.sub("^(bin|share/doc/uactask)/", "", path): data for path, data in files_below(stage).items()}

install(stage)
run("x86_64-w64-mingw32-strip", "--strip-debug", "--enable-deterministic-archives",
    *map(str, sorted((stage / "lib").glob("*.a"))))
developers = files_below(stage)
shutil.rmtree(stage)

programs = {path.removesuffix(".exe"): users[path] for path in sorted(users) if path.endswith(".exe")}
symbols = {f"{name}.debug": (BUILD / f"bin/{name}.debug").read_bytes() for name in programs}

faults = []
if json.loads((SOURCE / "ports/uactask/vcpkg.json").read_text())["version"] != VERSION:
    faults.append("ports/uactask/vcpkg.json has another version")
for name, files in ((f"{NAME}-win64", users), (f"{NAME}-dev-win64", developers), (f"{NAME}-symbols", symbols)):
    faults += faults_of(name, files)
    pack(name, files)
(OUTPUT / f"{NAME}.spdx.json").write_text(json.dumps(bill_of_materials(programs), indent=1) + "\n")

sums = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n" for path in sorted(OUTPUT.iterdir())]
(OUTPUT / "SHA256SUMS").write_text("".join(sums))
print("".join(sums), end="")
sys.exit("\n".join(faults) if faults else 0)
