#!/usr/bin/env python3
"""model_table.py [--build FOLDER] [--models FOLDER]... [--only N] PAGE

Makes the tables of docs/models.md, between its marks "models: begin" and "models: end": every model below the folders,
what `kelsrc convert` makes of it, and whether another reading agrees.

    --check   compares the page with the models of the first folder instead: all are there, once; and makes the rows of
              the N smallest files of each format anew, which have to be the same
"""
import argparse
import collections
import concurrent.futures
import fnmatch
import json
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
BEGIN, END = "<!-- models: begin -->\n", "<!-- models: end -->\n"
HEAD = "| file | meshes | triangles | vertices | box | beside {} |\n| --- | ---: | ---: | ---: | --- | --- |\n"
SECONDS = 120
# Of the diagonal: what rounding to floats and the order of sums may change.
CLOSE = 1e-5
KINDS = ("triangles", "lines", "points")


def run(command, **more):
    try:
        done = subprocess.run(command, capture_output=True, timeout=SECONDS, **more)
    except subprocess.TimeoutExpired:
        return 1, "", f"takes more than {SECONDS} seconds"
    if done.returncode < 0:
        return 1, "", "crashes"
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace").strip()


def own_reading(build, path, folder):
    """What kelsrc makes of a model, or the reason why it makes nothing."""
    kelsrc = os.path.join(build, "bin", "kelsrc")
    with tempfile.TemporaryDirectory() as scratch:
        src = os.path.join(scratch, "model.src")
        # From its folder, so that messages name no folders.
        status, out, error = run([kelsrc, "convert", os.path.basename(path), "-o", src, "--mode=uncompressed", "--json",
                                  "-q"], cwd=os.path.dirname(path))
        if status != 0:
            return None, reason(error, os.path.basename(path))
        counts = json.loads(out)["files"][0]
        bounds = json.loads(run([kelsrc, "info", "--json", src])[1])["files"][0]["bounds"]
    # As they were imported, before meshes of more vertices than 16 bits count were cut.
    meshes, vertices = counts["meshes"], counts["vertices"]
    for note in counts["notes"]:
        if cut := re.match(r"cut (\d+) .* into (\d+) parts, which doubles (\d+) vert", note):
            meshes -= int(cut[2]) - int(cut[1])
            vertices -= int(cut[3])
    return {"meshes": meshes, **{kind: counts[kind] for kind in KINDS}, "vertices": vertices, "min": bounds["min"],
            "max": bounds["max"]}, None


def reason(error, name):
    """The sentence of a refusal: without the program, the file and the remedy."""
    sentence = error.splitlines()[0] if error else "no reason"
    sentence = re.sub(r"^.*?" + re.escape(name) + r'"?: ', "", sentence, count=1)
    return sentence.split("; ")[0]


def other_reading(build, path):
    """What another reader finds, or its reason; of a glTF that the first one does not read, the next one."""
    if path.lower().endswith((".gltf", ".glb")):
        status, out, error = run(["node", os.path.join(ROOT, "web", "support", "gltf_facts.mjs"), path])
        if status == 0:
            return json.loads(out), None
    status, out, error = run([os.path.join(build, "bin", "assimp_facts"), path])
    return (json.loads(out), None) if status == 0 else (None, (error.splitlines() or ["it fails"])[0])


def differences(own, other):
    if other["meshes"] == 0:
        return ["finds nothing to draw"]
    found = []
    if own["meshes"] != other["meshes"]:
        found.append(f"{other['meshes']:,} meshes")
    for kind in KINDS:
        if own[kind] != other[kind]:
            found.append(f"{other[kind]:,} {kind}")
    if own["vertices"] < other["vertices"][0]:
        found.append(f"{other['vertices'][0]:,} different positions")
    size = max(high - low for low, high in zip(own["min"], own["max"]))
    far = max(abs(a - b) for a, b in zip(own["min"] + own["max"], other["min"] + other["max"]))
    if not far <= CLOSE * size:
        found.append("the box " + box(other))
    return found


def number(value):
    return f"{value + 0.0:.4g}"


def box(reading):
    return " ".join(f"{number(low)}…{number(high)}" for low, high in zip(reading["min"], reading["max"]))


def escaped(text):
    return re.sub(r"([|<>*_`\[\]])", r"\\\1", text)


def row_of(build, folder, file, reasons):
    path = os.path.join(folder, file)
    own, refusal = own_reading(build, path, folder)
    other, failure = other_reading(build, path)
    if own is None:
        cells = ["", "", "", escaped("refused: " + refusal)]
        some = next((f"{other[kind]:,} {kind}" for kind in KINDS if other and other[kind]), "reads nothing to draw")
        beside = "refused, too" if other is None else some
    else:
        more = "".join(f", {own[kind]:,} {kind}" for kind in KINDS[1:] if own[kind])
        cells = [f"{own['meshes']:,}", f"{own['triangles']:,}{more}", f"{own['vertices']:,}", box(own)]
        apart = [failure] if other is None else differences(own, other)
        beside = "agrees" if other and not apart else escaped("; ".join(apart))
    if beside not in ("agrees", "refused, too"):
        why = next((text for pattern, text in reasons if fnmatch.fnmatch(file, pattern)), None)
        beside += ": " + (why or "UNEXPLAINED")
    return "| " + " | ".join([escaped(file), *cells, beside]) + " |"


def listed(build, folder):
    status, out, error = run([os.path.join(build, "bin", "assimp_facts"), "--list", folder])
    if status != 0:
        sys.exit(error)
    return out.splitlines()


def format_of(file):
    return os.path.splitext(file)[1][1:].lower()


def read_reasons():
    """Lines of a pattern of files, a tab, and a reason in words."""
    with open(os.path.join(HERE, "differences.tsv"), encoding="utf-8") as lines:
        return [line.rstrip("\n").split("\t") for line in lines if line.strip() and not line.startswith("#")]


def rows_of(build, folder, files):
    reasons = read_reasons()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(lambda file: row_of(build, folder, file, reasons), files))


def sections(build, folder):
    files = sorted(listed(build, folder), key=lambda file: (format_of(file), file))
    rows = dict(zip(files, rows_of(build, folder, files)))
    formats = collections.defaultdict(list)
    for file in files:
        formats["glTF" if format_of(file) in ("glb", "gltf") else format_of(file)].append(rows[file])
    for name, lines in sorted(formats.items(), key=lambda entry: (entry[0] != "glTF", entry[0])):
        reader = "glTF-Transform" if name == "glTF" else "Assimp"
        yield f"### {name}\n\n" + HEAD.format(reader) + "\n".join(lines) + "\n", lines


def summary(lines):
    refused = sum("| refused: " in line for line in lines)
    agree = sum(line.endswith("| agrees |") for line in lines)
    both = sum(line.endswith("| refused, too |") for line in lines)
    return (f"{len(lines)} files: {len(lines) - refused} read, of which {agree} agree with the other reading; {refused} refused, "
            f"{both} of them by the other reading, too.")


def make(options):
    text = ""
    for title, folder in zip(("assimp-testmodels", "Further models"), options.models):
        tables = list(sections(options.build, folder))
        gltf = [line for table, lines in tables for line in lines if table.startswith("### glTF")]
        text += f"## {title}\n\n" + summary([line for _, lines in tables for line in lines])
        text += f" Of these {len(gltf)} are glTF.\n\n" + "\n".join(table for table, _ in tables) + "\n"
    with open(options.page, encoding="utf-8") as file:
        page = file.read()
    before, rest = page.split(BEGIN)
    with open(options.page, "w", encoding="utf-8") as file:
        file.write(before + BEGIN + "\n" + text + END + rest.split(END)[1])


def check(options):
    with open(options.page, encoding="utf-8") as file:
        section = file.read().split("## assimp-testmodels\n")[1].split("\n## ")[0]
    rows = {}
    for line in section.splitlines():
        if not line.startswith("| ") or line.startswith(("| file ", "| --- ")):
            continue
        cells = re.split(r"(?<!\\) \| ", line[2:-2])
        if len(cells) != 6 or not cells[5] or "UNEXPLAINED" in line:
            sys.exit("not a whole row: " + line)
        file = re.sub(r"\\(.)", r"\1", cells[0])
        if file in rows:
            sys.exit("twice in the table: " + file)
        rows[file] = line
    folder = options.models[0]
    files = listed(options.build, folder)
    if set(files) != set(rows):
        sys.exit("missing in the table or gone: " + ", ".join(sorted(set(files) ^ set(rows))))
    small = collections.defaultdict(list)
    for file in sorted(files, key=lambda file: os.path.getsize(os.path.join(folder, file))):
        # Without npm's packages there is nothing to read glTF with.
        if format_of(file) not in ("glb", "gltf") and "refused" not in rows[file]:
            small[format_of(file)].append(file)
    chosen = [file for files in small.values() for file in files[:options.only]]
    wrong = [f"the page has {rows[file]}\nit should be {row}"
             for file, row in zip(chosen, rows_of(options.build, folder, chosen)) if row != rows[file]]
    if wrong:
        sys.exit("\n".join(wrong))
    print(f"{len(rows)} rows, {len(chosen)} of them made anew")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "release"))
    parser.add_argument("--models", action="append")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--only", type=int, default=1, metavar="N")
    parser.add_argument("page")
    options = parser.parse_args()
    options.models = options.models or ["/usr/share/assimp/models"]
    check(options) if options.check else make(options)


main()
