#!/usr/bin/env python3
"""The native NuGet package as NuGet and MSBuild read it: a zip with the .nuspec at its root
(id, version), build/native/<id>.props and .targets that are well-formed MSBuild files, every
path they name present in the package, and x64 only. Usage: check-nupkg.py PACKAGE VERSION"""
import re
import sys
import xml.etree.ElementTree as ElementTree
import zipfile

PACKAGE_ID = "NetWorkerXbsa.native"
MSBUILD = "{http://schemas.microsoft.com/developer/msbuild/2003}"
NUSPEC = "{http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd}"


def fail(message):
    print(f"check-nupkg: {message}", file=sys.stderr)
    sys.exit(1)


def main():
    path, version = sys.argv[1], sys.argv[2]
    with zipfile.ZipFile(path) as package:
        names = set(package.namelist())
        if f"{PACKAGE_ID}.nuspec" not in names:
            fail(f"no {PACKAGE_ID}.nuspec at the package's root")
        if "[Content_Types].xml" not in names:
            fail("no [Content_Types].xml")
        nuspec = ElementTree.fromstring(package.read(f"{PACKAGE_ID}.nuspec"))
        metadata = nuspec.find(f"{NUSPEC}metadata")
        if metadata is None:
            fail("the .nuspec has no metadata")
        if metadata.findtext(f"{NUSPEC}id") != PACKAGE_ID:
            fail("the .nuspec's id is not " + PACKAGE_ID)
        if metadata.findtext(f"{NUSPEC}version") != version:
            fail(f"the .nuspec's version is not {version}")

        named = []
        for kind in ("props", "targets"):
            name = f"build/native/{PACKAGE_ID}.{kind}"
            if name not in names:
                fail(f"no {name}")
            project = ElementTree.fromstring(package.read(name))  # raises if not well-formed
            if project.tag != f"{MSBUILD}Project":
                fail(f"{name} is not an MSBuild project")
            for element in project.iter():
                for text in [element.text or ""] + list(element.attrib.values()):
                    for found in re.findall(r"\$\(MSBuildThisFileDirectory\)([^;\"]+)", text):
                        named.append(found.replace("\\", "/"))
                condition = element.attrib.get("Condition", "")
                if "Platform" in condition and "x64" not in condition:
                    fail(f"{name}: a platform condition other than x64: {condition}")
            if kind == "targets" and "NetWorkerXbsaCopyRuntime" not in package.read(name).decode():
                fail(f"{name} does not copy the runtime files")

        for relative in named:
            entry = "build/native/" + relative
            if entry not in names and not any(n.startswith(entry + "/") for n in names):
                fail(f"the MSBuild files name {relative}, which the package does not hold")
        for required in ("include/NetWorkerXbsa.h", "lib/x64/NetWorkerXbsa.lib",
                         "bin/x64/NetWorkerXbsa.dll", "bin/x64/TarnLog.dll",
                         "bin/x64/NetWorker64BitClient.exe"):
            if f"build/native/{required}" not in names:
                fail(f"no build/native/{required}")
        if any(re.search(r"(^|/)(x86|win32|arm64?)(/|$)", n, re.IGNORECASE) for n in names):
            fail("the package holds files of a platform other than x64")
    print(f"check-nupkg: {path}: {PACKAGE_ID} {version}, {len(named)} paths named, all present")


if __name__ == "__main__":
    main()
