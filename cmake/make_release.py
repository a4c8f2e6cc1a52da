"""Packs a build into archives that are the same bytes whenever and wherever they are packed, and lists what is linked
into the programs. Usage: make_release.py SOURCE BUILD OUTPUT VERSION, with SOURCE_DATE_EPOCH in the environment

  uactask-VERSION-win64.zip       the programs, their docs and licences
  uactask-VERSION-dev-win64.zip   the same with all that building against it needs: headers, libraries, the CMake
                                  package, the toolchain file, and the parts of Boost that these use
  uactask-VERSION-symbols.zip     the programs' debug symbols
  uactask-VERSION.spdx.json       what is linked in, with versions and licences (SPDX 2.3)
  SHA256SUMS

If the environment variable UACTASK_SIGN_COMMAND holds a command, it is run on each program before anything is packed or
hashed, with the program's path as the last argument.
"""

import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import time
import urllib.parse
import zipfile

SOURCE, BUILD, OUTPUT = (pathlib.Path(argument).absolute() for argument in sys.argv[1:4])
VERSION = sys.argv[4]
WHEN = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))
NAME = f"uactask-{VERSION}"

BOOST = SOURCE / "build/boost"
COMPILER = "x86_64-w64-mingw32-g++-posix"
MINGW_COPYRIGHT = pathlib.Path("/usr/share/doc/mingw-w64-common/copyright")

# What is linked in: name, licence, the Debian package that holds it (None for Boost, which is built here), the programs
# (all if none is named). The texts of licences without an SPDX name are in MinGW-w64's copyright file.
LINKED = [
    ("Boost", "BSL-1.0", None, ()),
    ("libstdc++", "GPL-3.0-or-later WITH GCC-exception-3.1", "g++-mingw-w64-x86-64-posix", ()),
    ("libgcc", "GPL-3.0-or-later WITH GCC-exception-3.1", "gcc-mingw-w64-x86-64-posix", ()),
    ("MinGW-w64 runtime", "ZPL-2.1 AND LicenseRef-Keith-Marshall", "mingw-w64-x86-64-dev", ()),
    ("gdtoa", "LicenseRef-Lucent AND LicenseRef-David-Gay", "mingw-w64-x86-64-dev", ()),
    ("winpthreads", "MIT AND LicenseRef-BSD-3-clause-Lockless", "mingw-w64-x86-64-dev", ()),
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
    """Writes a ZIP with one folder at its top and nothing in it that depends on the machine."""
    top = name.removesuffix("-win64")
    with zipfile.ZipFile(OUTPUT / f"{name}.zip", "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for path in sorted(files):
            entry = zipfile.ZipInfo(f"{top}/{path}", WHEN[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if path.endswith((".exe", "run_under_wine")) else 0o644) << 16
            entry.create_system = 3
            archive.writestr(entry, files[path])


def faults_of(name, files):
    """Finds paths of this machine in the files, and links in the docs that lead nowhere."""
    for path, data in files.items():
        for folder in {str(SOURCE), str(SOURCE.resolve()), str(BUILD), str(BOOST.resolve())}:
            if any(folder.encode(encoding) in data for encoding in ("utf-8", "utf-16-le")):
                yield f"{name}: {path} holds this machine's path {folder}"
        if path.endswith(".md"):
            for link in re.findall(r"\]\(([^)#:]+)[^):]*\)", data.decode()):
                if os.path.normpath(os.path.join(os.path.dirname(path), link)) not in files:
                    yield f"{name}: {path} links to {link}, which is not in the archive"


def sign(program):
    command = os.environ.get("UACTASK_SIGN_COMMAND")
    if command:
        run(*shlex.split(command), str(program))


def boost_files(include):
    """Boost's libraries, and those of its headers that the package's headers include, by the compiler's own list."""
    headers = sorted(path.relative_to(include).as_posix() for path in include.rglob("*.h"))
    source = "".join(f"#include <{header}>\n" for header in [*headers, "boost/filesystem.hpp", "boost/version.hpp"])
    needed = set()
    for standard in ("c++17", "c++20"):
        found = subprocess.run([COMPILER, f"-std={standard}", "-M", f"-I{include}", f"-I{BOOST}/include", "-x", "c++", "-"],
                               input=source, check=True, capture_output=True, text=True).stdout
        paths = (path.replace("\\ ", " ") for path in re.split(r"(?<!\\)\s+", found.replace("\\\n", " ")))  # make's syntax
        needed |= {pathlib.Path(path) for path in paths if path.startswith(f"{BOOST}/")}
    needed |= set((BOOST / "lib").glob("*.a"))
    return {path.relative_to(BOOST).as_posix(): path.read_bytes() for path in needed}


def identity_of(debian):
    """Version, package URL and origin of what comes from this Debian package, or of Boost for None."""
    if debian is not None:
        version = run("dpkg-query", "-W", "-f=${Version}", debian)
        return version, f"pkg:deb/debian/{debian.replace('+', '%2B')}@{urllib.parse.quote(version)}", f"Debian package {debian}"
    header = (BOOST / "include/boost/version.hpp").read_text()
    number = int(re.search(r"#define BOOST_VERSION (\d+)", header).group(1))
    version = f"{number // 100000}.{number // 100 % 1000}.{number % 100}"
    return version, f"pkg:generic/boost@{version}", f"Debian source package {(BOOST / 'package').read_text().strip()}"


def licence_texts():
    """The texts of the licences that LINKED names by LicenseRef."""
    texts = MINGW_COPYRIGHT.read_text()
    for name in sorted(set(re.findall(r"LicenseRef-([\w-]+)", str(LINKED)))):
        text = re.search(rf"^License: {name}\n((?: .*\n)+)", texts, re.M).group(1)
        yield {"licenseId": f"LicenseRef-{name}", "name": name, "extractedText": re.sub(r"^ \.?", "", text, flags=re.M)}


def bill_of_materials(programs):
    """The SPDX document: each program is a package, and each package linked into it is another."""

    def package(identity, name, version, licence, purl, **more):
        return {"SPDXID": f"SPDXRef-{identity}", "name": name, "versionInfo": version, "filesAnalyzed": False,
                "downloadLocation": "NOASSERTION", "copyrightText": "NOASSERTION", "licenseConcluded": "NOASSERTION",
                "licenseDeclared": licence, "supplier": "NOASSERTION",
                "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                  "referenceLocator": purl}], **more}

    def relation(one, kind, other):
        return {"spdxElementId": f"SPDXRef-{one}", "relationshipType": kind, "relatedSpdxElement": f"SPDXRef-{other}"}

    packages, relations = [], []
    for name, data in programs.items():
        digest = hashlib.sha256(data).hexdigest()
        packages.append(package(name, f"{name}.exe", VERSION, "NOASSERTION", f"pkg:generic/{name}@{VERSION}",
                                primaryPackagePurpose="APPLICATION",
                                checksums=[{"algorithm": "SHA256", "checksumValue": digest}]))
        relations.append(relation("DOCUMENT", "DESCRIBES", name))
    for name, licence, debian, users in LINKED:
        users = [user for user in programs if not users or user in users]
        if not users:
            continue
        identity = re.sub(r"[^\w.-]", "-", name)
        version, purl, source = identity_of(debian)
        packages.append(package(identity, name, version, licence, purl, sourceInfo=source,
                                supplier="Organization: Debian"))
        relations += [relation(user, "STATIC_LINK", identity) for user in users]
    content = hashlib.sha256(json.dumps(packages).encode()).hexdigest()
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": NAME,
            "documentNamespace": f"https://spdx.org/spdxdocs/{NAME}-{content}",
            "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", WHEN),
                             "creators": ["Tool: uactask-make-release"]},
            "packages": packages, "relationships": relations, "hasExtractedLicensingInfos": list(licence_texts())}


shutil.rmtree(OUTPUT, ignore_errors=True)
OUTPUT.mkdir(parents=True)

stage = BUILD / "stage"
install(stage, "--component", "programs")
# In the users' archive the programs are at the top, with the docs beside them.
for_users = [re.sub("^share/doc/uactask/", "", path) for path in files_below(stage)]

install(stage)
for program in sorted((stage / "bin").glob("*.exe")):
    sign(program)
run("x86_64-w64-mingw32-strip", "--strip-debug", "--enable-deterministic-archives",
    *map(str, sorted((stage / "lib").glob("*.a"))))
developers = files_below(stage)
users = {path.removeprefix("bin/"): developers[path if path in developers else f"share/doc/uactask/{path}"]
         for path in for_users}
developers |= boost_files(stage / "include/uactask")
developers |= {f"cmake/{name}": (SOURCE / "cmake" / name).read_bytes() for name in ("mingw-w64.cmake", "run_under_wine")}
developers["README.md"] = (BUILD / "package/developers_readme.md").read_bytes()
shutil.rmtree(stage)

programs = {path.removesuffix(".exe"): users[path] for path in sorted(users) if path.endswith(".exe")}
symbols = {f"{name}.debug": (BUILD / f"bin/{name}.debug").read_bytes() for name in programs}

faults = []
if json.loads((SOURCE / "ports/uactask/vcpkg.json").read_text())["version"] != VERSION:
    faults.append(f"ports/uactask/vcpkg.json must have the version {VERSION}")
for name, files in ((f"{NAME}-win64", users), (f"{NAME}-dev-win64", developers), (f"{NAME}-symbols", symbols)):
    faults += faults_of(name, files)
    pack(name, files)
(OUTPUT / f"{NAME}.spdx.json").write_text(json.dumps(bill_of_materials(programs), indent=1) + "\n")

sums = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n" for path in sorted(OUTPUT.iterdir())]
(OUTPUT / "SHA256SUMS").write_text("".join(sums))
print("".join(sums), end="")
sys.exit("\n".join(faults) if faults else 0)
