#!/usr/bin/env python3
"""Writes a zip of every file below STAGE that is the same bytes whenever the files are: entries
in name order, each dated DATE (YYYY-MM-DD, 00:00), with no extra fields (a zip tool's extended
timestamps carry the access and change times of the moment). Usage: reproducible-zip.py STAGE
ARCHIVE DATE"""
import os
import sys
import zipfile


def main():
    stage, archive, date = sys.argv[1], sys.argv[2], sys.argv[3]
    year, month, day = (int(part) for part in date.split("-"))
    entries = []
    for directory, _, files in os.walk(stage):
        for name in files:
            path = os.path.join(directory, name)
            entries.append(os.path.relpath(path, stage).replace(os.sep, "/"))
    with zipfile.ZipFile(archive, "w") as output:
        for entry in sorted(entries):
            info = zipfile.ZipInfo(entry, date_time=(year, month, day, 0, 0, 0))
            info.compress_type = zipfile.ZIP_DEFLATED
            info.create_system = 3  # Unix, so that the permissions below are read
            info.external_attr = 0o644 << 16
            with open(os.path.join(stage, entry), "rb") as source:
                output.writestr(info, source.read(), compresslevel=9)


if __name__ == "__main__":
    main()
