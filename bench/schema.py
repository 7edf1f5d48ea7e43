"""schema.py BIN: import and export of a generated schema of 1,500 classes with long descriptions (10 MB) in 300 files,
the same of twice as many classes, and the check of a store of 1,000,000 instances."""

import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

CLASSES = 1_500
CLASSES_A_FILE = 5
PROPERTIES = 12
REPETITIONS = 3
CHECKED = 1_000_000
NAMESPACE = "\\\\.\\root\\Vantrel\\Bench"
WORDS = ("the setting policy of this element is kept as long as its owner does not change it and says how many "
         "seconds minutes or days may pass before a value that was measured counts as old").split()
TYPES = ["string", "uint8", "uint16", "uint32", "uint64", "sint32", "sint64", "boolean", "datetime", "real64"]

QUALIFIERS = """
Qualifier Description : string = null, Scope(any), Flavor(EnableOverride, ToSubclass, Translatable);
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier MaxLen : uint32 = null, Scope(property, method, parameter);
Qualifier ValueMap : string[], Scope(property, method, parameter);
Qualifier Values : string[], Scope(property, method, parameter), Flavor(EnableOverride, ToSubclass, Translatable);
Qualifier In : boolean = true, Scope(parameter), Flavor(DisableOverride, ToSubclass);
"""


def description(source):
    pieces = [" ".join(source.choices(WORDS, k=14)) for _ in range(5)]
    return "Description(" + "\n         ".join(f'"{piece} "' for piece in pieces) + ")"


def class_text(number, source):
    name = f"Bench_Element{number:05}"
    # About as deep, whatever the number of classes: each derives from one of a tenth of the number.
    above = f" : Bench_Element{source.randrange(number // 10, number // 5 + 1):05}" if number > 0 else ""
    lines = [f"[{description(source)}]", f"class {name}{above} {{"]
    if number == 0:
        lines.append("  [Key, MaxLen(256)] string INSTANCE_ID;")
    for i in range(PROPERTIES):
        lines.append(f'  [{description(source)}, ValueMap {{"1", "2", "3"}}, Values {{"On", "Off", "Unknown"}}]')
        lines.append(f"  {source.choice(TYPES)} P{number}_{i};")
    lines.append(f"  [{description(source)}]")
    lines.append("  uint32 Reset([In] uint32 Delay, [In] string Reason[]);\n};")
    return "\n".join(lines) + "\n"


def write_schema(directory, classes):
    """The files, derived classes among them before what they derive from, and the one that includes them all."""
    source = random.Random(classes)
    texts = [class_text(number, source) for number in range(classes)]
    source.shuffle(texts)
    includes = ['#pragma include("qualifiers.mof")']
    (directory / "qualifiers.mof").write_text(QUALIFIERS)
    size = 0
    for first in range(0, classes, CLASSES_A_FILE):
        name = f"part{first // CLASSES_A_FILE:05}.mof"
        text = "".join(texts[first:first + CLASSES_A_FILE])
        size += len(text)
        (directory / name).write_text(text)
        includes.append(f'#pragma include("{name}")')
    (directory / "schema.mof").write_text("\n".join(includes) + "\n")
    return size


def run(command, store):
    """Seconds, and the most memory in MiB."""
    begin = time.monotonic()
    process = subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL,
                               env=os.environ | {"MGMT_STORE": str(store)})
    _pid, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{command} failed: {status}")
    return time.monotonic() - begin, usage.ru_maxrss / 1024


def measure_schema(tool, directory, classes):
    size = write_schema(directory, classes)
    results = {name: [] for name in ("import", "again", "export")}
    for i in range(REPETITIONS):
        store = directory / f"store-{i}"
        results["import"].append(run([*tool, "import", directory / "schema.mof"], store))
        results["again"].append(run([*tool, "import", directory / "schema.mof"], store))
        results["export"].append(run([*tool, "export", "--output", directory / f"export-{i}.mof"], store))
        run([*tool, "import", directory / f"export-{i}.mof"], directory / f"copy-{i}")
        run([*tool, "export", "--output", directory / "copy.mof"], directory / f"copy-{i}")
        if (directory / "copy.mof").read_bytes() != (directory / f"export-{i}.mof").read_bytes():
            sys.exit("the export of the imported export differs")
    medians = {name: [statistics.median(column) for column in zip(*rows)] for name, rows in results.items()}
    print(f"  {classes:,} classes, {size / 1e6:.1f} MB in {classes // CLASSES_A_FILE} files:")
    for name, what in [("import", "imported"), ("again", "imported again, unchanged"), ("export", "exported")]:
        print(f"    {what:<26}{medians[name][0]:>7.2f} s   peak {medians[name][1]:>6.0f} MiB")
    return medians


def measure_check(program, tool, directory):
    subprocess.run([program / "enumeration_bench", "prepare", str(directory), str(CHECKED)], check=True)
    rows = [run([*tool, "check"], directory / "store") for _ in range(REPETITIONS)]
    taken, peak = (statistics.median(column) for column in zip(*rows))
    print(f"  check of {CHECKED:,} instances: {taken:.2f} s, {CHECKED / taken:,.0f} instances a second, peak {peak:.0f} MiB")


def main(bin_directory):
    program = pathlib.Path(bin_directory)
    tool = [program / "mgmtctl", "--namespace", NAMESPACE]
    root = pathlib.Path(tempfile.mkdtemp(prefix="mgmt-bench-"))
    try:
        medians = []
        for classes in (CLASSES, 2 * CLASSES):
            directory = root / str(classes)
            directory.mkdir()
            medians.append(measure_schema(tool, directory, classes))
        growth = {name: medians[1][name][0] / medians[0][name][0] for name in medians[0]}
        print("  twice the schema takes " +
              ", ".join(f"{growth[name]:.2f} times as long ({name})" for name in growth))
        (root / "check").mkdir()
        measure_check(program, tool, root / "check")
    finally:
        shutil.rmtree(root)


if __name__ == "__main__":
    main(*sys.argv[1:])
