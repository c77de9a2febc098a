# SPDX-License-Identifier: Apache-2.0
# The bill of materials of a Debian package, as SPDX 2.3 in JSON: sbom.py PACKAGE FOLDER
#
# FOLDER is what will be in the package. Its files are listed with their hashes. What they load is read from the
# files, what was compiled into them is in a table below; names and versions are those of dpkg. The document goes
# into the package's documentation. SOURCE_DATE_EPOCH is its time.
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import uuid

# Build dependencies that are headers only, and end up in the files of a package.
COMPILED_INTO = {"vorn-nac-tools": ["libcli11-dev", "nlohmann-json3-dev"],
                 "libvorn-bus1": ["nlohmann-json3-dev"], "libvorn-nac-inspect1": ["nlohmann-json3-dev"]}
COMPILERS = ["g++", "binutils"]


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def needed(file: pathlib.Path) -> set[str]:
    if file.read_bytes()[:4] != b"\x7fELF":
        return set()
    return set(re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "--dynamic", "--wide", str(file))))


def own_package(soname: str) -> str | None:
    """The package of this build that has the library."""
    for path in sorted(pathlib.Path("debian").glob(f"*/usr/lib/*/{soname}")):
        return path.parts[1]
    return None


def system_package(soname: str) -> str:
    machine = output("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()
    for folder in (f"/lib/{machine}", f"/usr/lib/{machine}"):
        found = subprocess.run(["dpkg-query", "--search", f"{folder}/{soname}"], capture_output=True, text=True)
        if found.returncode == 0:
            return found.stdout.split(":")[0]
    raise SystemExit(f"sbom: no package has {soname}")


def spdx_id(*parts: str) -> str:
    return "SPDXRef-" + "-".join(re.sub(r"[^A-Za-z0-9.]+", "-", part).strip("-") for part in parts)


def dependency(name: str) -> dict:
    """A package of the system as one of the document."""
    version, source, homepage = output(
        "dpkg-query", "--show", "--showformat=${Version}\t${source:Package}\t${Homepage}", name).split("\t")
    entry = {"SPDXID": spdx_id("Package", name), "name": name, "versionInfo": version,
             "supplier": "Organization: Debian", "downloadLocation": "NOASSERTION", "filesAnalyzed": False,
             "sourceInfo": f"Debian source package {source}",
             "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                               "referenceLocator": f"pkg:deb/debian/{name}@{version}"}]}
    return entry | ({"homepage": homepage} if homepage else {})


def main() -> int:
    package, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    version = output("dpkg-parsechangelog", "--show-field", "Version").strip()
    architecture = output("dpkg-architecture", "-qDEB_HOST_ARCH").strip()
    files, libraries = [], set()
    for path in sorted(path for path in folder.rglob("*") if path.is_file() and not path.is_symlink()):
        inside = path.relative_to(folder)
        if inside.parts[0] == "DEBIAN" or path.name.endswith(".spdx.json"):
            continue
        content = path.read_bytes()
        files.append({"SPDXID": spdx_id("File", str(inside)), "fileName": f"./{inside}",
                      "checksums": [{"algorithm": name.upper(), "checksumValue": hashlib.new(name, content).hexdigest()}
                                    for name in ("sha1", "sha256")],
                      "licenseConcluded": "Apache-2.0", "copyrightText": "NOASSERTION"})
        libraries |= needed(path)

    me = {"SPDXID": spdx_id("Package", package), "name": package, "versionInfo": version,
          "supplier": "Organization: vorn_nac", "downloadLocation": "NOASSERTION", "filesAnalyzed": True,
          "packageVerificationCode": {"packageVerificationCodeValue": hashlib.sha1("".join(
              sorted(file["checksums"][0]["checksumValue"] for file in files)).encode()).hexdigest()},
          "licenseConcluded": "Apache-2.0", "licenseDeclared": "Apache-2.0", "copyrightText": "NOASSERTION"}
    packages = {package: me}
    relationships = [("SPDXRef-DOCUMENT", "DESCRIBES", me["SPDXID"])]
    relationships += [(me["SPDXID"], "CONTAINS", file["SPDXID"]) for file in files]
    for soname in sorted(libraries):
        name = own_package(soname)
        if name is None:
            name = system_package(soname)
            packages.setdefault(name, dependency(name))
        elif name != package:
            packages.setdefault(name, {"SPDXID": spdx_id("Package", name), "name": name, "versionInfo": version,
                                       "supplier": "Organization: vorn_nac", "downloadLocation": "NOASSERTION",
                                       "filesAnalyzed": False})
        if name != package:
            relationships.append((me["SPDXID"], "DYNAMIC_LINK", spdx_id("Package", name)))
    if libraries:
        for name in COMPILED_INTO.get(package, []):
            packages[name] = dependency(name)
            relationships.append((me["SPDXID"], "STATIC_LINK", spdx_id("Package", name)))
        for name in COMPILERS:
            packages[name] = dependency(name)
            relationships.append((spdx_id("Package", name), "BUILD_TOOL_OF", me["SPDXID"]))

    time = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    document = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{package}_{version}_{architecture}",
        "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: vorn_nac-sbom"]},
        "packages": list(packages.values()), "files": files,
        "relationships": [{"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
                          for one, kind, other in dict.fromkeys(relationships)]}
    # A name of its own for each content, and the same for the same.
    content = json.dumps(document, sort_keys=True)
    document["documentNamespace"] = f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_URL, content)}"
    target = folder / "usr/share/doc" / package / f"{package}_{architecture}.spdx.json"
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(json.dumps(document, indent=1) + "\n")
    target.chmod(0o644)
    return 0


if __name__ == "__main__":
    sys.exit(main())
