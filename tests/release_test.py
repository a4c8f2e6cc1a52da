"""Packs a release with a signer, and builds the examples from the unpacked developers' package alone.
Usage: release_test.py SOURCE BUILD WORK VERSION CMAKE GENERATOR [EMULATOR...]"""

import hashlib
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import sys

SIGNATURE = b"signed by the test"
if sys.argv[1] == "--sign":
    with open(sys.argv[2], "ab") as program:
        program.write(SIGNATURE)
    sys.exit()

source, build, work = map(pathlib.Path, sys.argv[1:4])
version, cmake, generator, *emulator = sys.argv[4:]
shutil.rmtree(work, ignore_errors=True)
work.mkdir()
os.environ |= {"SOURCE_DATE_EPOCH": "1700000000", "UACTASK_SIGN_COMMAND": shlex.join([sys.executable, __file__, "--sign"])}


def run(*command, **options):
    return subprocess.run(command, check=True, **options)


def digest(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


run(sys.executable, source / "cmake/make_release.py", source, build, work / "release", version)
for name in ("", "-dev"):
    run(cmake, "-E", "tar", "xf", work / f"release/uactask-{version}{name}-win64.zip", cwd=work)
users, package = work / f"uactask-{version}", work / f"uactask-{version}-dev"

# What was signed is what is packed, hashed and listed.
run("sha256sum", "--check", "--quiet", "SHA256SUMS", cwd=work / "release")
bill = json.loads((work / f"release/uactask-{version}.spdx.json").read_text())
listed = {part["name"]: part["checksums"][0]["checksumValue"] for part in bill["packages"] if "checksums" in part}
assert sorted(listed) == ["uactask.exe", "uactl.exe"], listed
for name, value in listed.items():
    assert (users / name).read_bytes().endswith(SIGNATURE), f"{name} is not signed"
    assert digest(users / name) == digest(package / "bin" / name) == value, f"{name} differs"
    assert not (build / "bin" / name).read_bytes().endswith(SIGNATURE), "the build's own program was signed"

# Nothing but the package and the compiler.
for example, program in (("package", "consumer"), ("desktop", "desktop"), ("job", "job")):
    folder = work / example
    run(cmake, "-G", generator, "-S", package / "share/doc/uactask/examples" / example, "-B", folder,
        "--toolchain", package / "cmake/mingw-w64.cmake")
    run(cmake, "--build", folder)
    assert (folder / "uactask.exe").exists(), "the helper is not beside the program"
run(*emulator, work / "package/consumer.exe", cwd=work)

# What the package cannot serve it refuses in one sentence.
(work / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.25)\nproject(other NONE)\nfind_package(uactask)\n")
for options, reason in (((), "are for 64-bit Windows, but this build is for Linux"),
                        (("-DCMAKE_SYSTEM_NAME=Windows",), "need the C++ compiler GNU, but this build uses \"\".")):
    shutil.rmtree(work / "other", ignore_errors=True)
    said = run(cmake, "-G", generator, "-S", work, "-B", work / "other", f"-DCMAKE_PREFIX_PATH={package}", *options,
               capture_output=True, text=True).stderr
    assert reason in " ".join(said.split()), said
shutil.rmtree(work)
