# SPDX-License-Identifier: Apache-2.0
# Two builds of the packages, in different folders, at different times and by different users, are the same bytes.
#
# reproducible.py [--first FOLDER] prints the hash of every package, library and program, or what differs. FOLDER
# holds packages that were built before, of these same sources; without it both builds are made here. As root, the
# second build is nobody's; otherwise it is the same user's.
import argparse
import datetime
import hashlib
import os
import pathlib
import pwd
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
OTHER_USER = "nobody"


def log(text: str) -> None:
    print(f"{datetime.datetime.now():%H:%M:%S} {text}", flush=True)


def last_commit() -> str:
    return subprocess.run(["git", "log", "-1", "--format=%ct"], check=True, capture_output=True, text=True, cwd=ROOT).stdout.strip()


def build_here(folder: pathlib.Path) -> pathlib.Path:
    user = pwd.getpwuid(os.getuid()).pw_name
    log(f"building in {folder / 'one'} as {user}")
    (folder / "one").mkdir()
    subprocess.run([ROOT / "packaging/build.sh", folder / "packages", folder / "one"], check=True)
    return folder / "packages"


def build_elsewhere(folder: pathlib.Path) -> pathlib.Path:
    """From a copy without git, in a folder with a longer name, by another user, with another time zone and umask."""
    elsewhere = folder / "some/other/folder"
    source = elsewhere / "source"
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "-z"], check=True,
                            capture_output=True, text=True, cwd=ROOT).stdout
    for name in listed.rstrip("\0").split("\0"):
        if (ROOT / name).is_file():
            (source / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, source / name)
    (elsewhere / "work").mkdir()
    settings: dict[str, object] = {"umask": 0o077}
    user = pwd.getpwuid(os.getuid())
    if os.geteuid() == 0:
        user = pwd.getpwnam(OTHER_USER)
        settings |= {"user": user.pw_uid, "group": user.pw_gid, "extra_groups": []}
        subprocess.run(["chown", "-R", f"{user.pw_uid}:{user.pw_gid}", elsewhere], check=True)
    log(f"building in {elsewhere / 'work'} as {user.pw_name}")
    subprocess.run([source / "packaging/build.sh", elsewhere / "packages", elsewhere / "work"], check=True, cwd=elsewhere,
                   env={"PATH": os.environ["PATH"], "HOME": "/nonexistent", "USER": user.pw_name, "TZ": "Asia/Tokyo",
                        "LC_ALL": "C", "SOURCE_DATE_EPOCH": last_commit()}, **settings)
    return elsewhere / "packages"


def hashes(packages: pathlib.Path, unpacked: pathlib.Path) -> dict[str, str]:
    """Of each package, and of each ELF file in it."""
    found = {}
    for package in sorted(packages.glob("*.deb")):
        found[package.name] = hashlib.sha256(package.read_bytes()).hexdigest()
        folder = unpacked / package.stem
        folder.mkdir(parents=True)
        subprocess.run(["dpkg-deb", "--extract", package, folder], check=True)
        for path in sorted(folder.rglob("*")):
            if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] in (b"\x7fELF", b"!<ar"):
                found[str(path.relative_to(folder))] = hashlib.sha256(path.read_bytes()).hexdigest()
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description="Builds the packages twice and compares them.")
    parser.add_argument("--first", type=pathlib.Path, help="packages of these sources, as the first build")
    first = parser.parse_args().first
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        folder.chmod(0o755)
        one = hashes(first or build_here(folder), folder / "unpacked/one")
        other = hashes(build_elsewhere(folder), folder / "unpacked/other")
    if not one:
        print("reproducible: no packages", file=sys.stderr)
        return 2
    different = sorted(file for file in one.keys() | other.keys() if one.get(file) != other.get(file))
    for file, value in one.items():
        print(f"count: {value}  {file}" + ("  DIFFERENT" if file in different else ""))
    if different:
        print(f"reproducible: not the same in both builds: {', '.join(different)}", file=sys.stderr)
        return 1
    log(f"{len(one)} files, the same in both builds")
    return 0


if __name__ == "__main__":
    sys.exit(main())
