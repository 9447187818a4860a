#!/usr/bin/env python3
"""import.py [--build FOLDER] [--work FOLDER] [--rounds N] [--markdown FILE]

Times kelsrc convert beside Debian's gltfpack and beside cp of the file that kelsrc writes: whole processes, taking turns
in each round, on the models of `kelsrc_scenes --models`. Work should be a folder in memory. Prints a table, or writes it
between the marks "import: begin" and "import: end" of a page.
"""
import argparse
import datetime
import os
import platform
import subprocess
import sys
import time

# Model, and what gltfpack is told: without -km it would merge the many meshes of that one.
MODELS = [("1x1000000", "1 mesh of 1,000,000 triangles", []), ("1x3000000", "1 mesh of 3,000,000", []),
          ("1000x1000", "1,000 meshes of 1,000", []), ("20000x50", "20,000 meshes of 50", ["-km"]),
          ("10000-of-1000", "10,000 nodes of one mesh of 1,000", None),
          ("10000-of-100", "10,000 nodes of one mesh of 100", None)]
MB = 1e6


class Best:
    """The least that a command took over its rounds."""

    def __init__(self, command):
        self.command, self.wall, self.cpu, self.peak = command, 1e9, 1e9, 0

    def run(self):
        begin = time.monotonic()
        process = subprocess.Popen(self.command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"{' '.join(self.command)} ends with {process.returncode}")
        self.wall = min(self.wall, time.monotonic() - begin)
        self.cpu = min(self.cpu, used.ru_utime + used.ru_stime)
        self.peak = max(self.peak, used.ru_maxrss * 1024)


def header_bytes(path):
    with open(path, "rb") as file:
        return int.from_bytes(file.read(12)[8:12], "little")


def measure(options):
    kelsrc = os.path.join(options.build, "bin", "kelsrc")
    empty = Best([kelsrc, "--version"])
    empty.run()
    for name, title, pack in MODELS:
        model, src = (os.path.join(options.work, name + end) for end in (".glb", ".src"))
        glb, copy = (os.path.join(options.work, end) for end in ("packed.glb", "copy"))
        ours = Best([kelsrc, "convert", model, "-o", src, "--no-progress"])
        ours.run()  # not counted: it makes what cp copies
        commands = [Best(ours.command), Best(["cp", src, copy])]
        if pack is not None:
            commands.append(Best(["gltfpack", "-i", model, "-o", glb, *pack]))
        for _ in range(options.rounds):
            for command in commands:
                command.run()
        ours, copied = commands[:2]
        packed = commands[2] if pack is not None else None
        size, header = os.path.getsize(src), header_bytes(src)
        allowed = os.path.getsize(model) + 2 * (size - header) + 3 * header
        other = packed or copied
        yield [title, f"{os.path.getsize(model) / MB:.1f}", f"{size / MB:.1f}",
               f"{ours.wall * 1e3:.0f}", f"{ours.cpu * 1e3:.0f}",
               f"{packed.wall * 1e3:.0f}" if packed else "", f"{packed.cpu * 1e3:.0f}" if packed else "",
               f"{copied.cpu * 1e3:.0f}", f"{ours.cpu / other.cpu:.2f}" + ("" if packed else " of cp"),
               f"{(ours.peak - empty.peak) / MB:.0f}", f"{allowed / MB:.0f}"]
        for path in (src, glb, copy):
            if os.path.exists(path):
                os.remove(path)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--work", default="/dev/shm/kelsrc-import")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", help="one model, as 1x1000000")
    parser.add_argument("--markdown")
    options = parser.parse_args()
    if options.only:
        MODELS[:] = [row for row in MODELS if row[0] == options.only]
    if not os.path.exists(os.path.join(options.work, MODELS[-1][0] + ".glb")):
        subprocess.run([os.path.join(options.build, "bin", "kelsrc_scenes"), "--models", options.work], check=True)
    head = ["model", "GLB, MB", "SRC, MB", "kelsrc ms", "its processor ms", "gltfpack ms", "its processor ms",
            "cp, processor ms", "ratio of processor", "peak MB", "bound MB"]
    lines = ["| " + " | ".join(head) + " |", "| --- |" + " ---: |" * (len(head) - 1)]
    for row in measure(options):
        lines.append("| " + " | ".join(row) + " |")
        print(lines[-1], file=sys.stderr)
    processor = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                     platform.machine())
    lines = [f"{datetime.date.today()}, {os.cpu_count()} processors, {processor}, least of {options.rounds} rounds.",
             ""] + lines
    if not options.markdown:
        print("\n".join(lines))
        return
    with open(options.markdown, encoding="utf-8") as file:
        page = file.read()
    begin, end = "<!-- import: begin -->\n", "<!-- import: end -->"
    before, rest = page.split(begin)
    with open(options.markdown, "w", encoding="utf-8") as file:
        file.write(before + begin + "\n" + "\n".join(lines) + "\n\n" + end + rest.split(end)[1])


main()
