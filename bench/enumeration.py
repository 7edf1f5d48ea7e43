"""enumeration.py BIN PLOT: reads whole classes of 1,000 to 1,000,000 instances into memory with the library, by
hand over LMDB and over SQLite, each time in a new process and in turns, and writes the plot of the medians."""

import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile

SIZES = [1_000, 10_000, 100_000, 1_000_000]
READERS = ["library", "lmdb", "sqlite"]
# (held against, wanted at most) at this size
COMPARED = 100_000
RATIOS = [("lmdb", 2.0), ("sqlite", 1.0)]
GROWTH = 1.3

GNUPLOT = """
set terminal svg size 720,400 font 'sans,12'
set output '{plot}'
set logscale x
set xlabel 'instances of the class'
set ylabel 'microseconds an instance'
set yrange [0:*]
set key top left
set grid
plot '{data}' using 1:2 with linespoints title 'GetInstances', \\
     '' using 1:3 with linespoints title 'LMDB by hand', \\
     '' using 1:4 with linespoints title 'SQLite'
"""


def run(program, reader, directory, size):
    """Nanoseconds and bytes an instance."""
    line = subprocess.run([program, reader, directory, str(size), "1"], check=True, capture_output=True, text=True)
    read, _freed, used = line.stdout.split()
    return float(read), float(used)


def measure(program, directory, size):
    subprocess.run([program, "prepare", directory, str(size)], check=True)
    repetitions = 5 if size >= 1_000_000 else 9
    results = {reader: [] for reader in READERS}
    # So that the files are in memory; and a virtual machine is slow at giving out memory for the first time.
    for reader in READERS * 2:
        run(program, reader, directory, size)
    for _ in range(repetitions):
        for reader in READERS:
            results[reader].append(run(program, reader, directory, size))
    return {reader: [statistics.median(column) for column in zip(*runs)] for reader, runs in results.items()}


def main(bin_directory, plot):
    program = str(pathlib.Path(bin_directory) / "enumeration_bench")
    medians = {}
    for size in SIZES:
        directory = tempfile.mkdtemp(prefix="mgmt-bench-")
        try:
            medians[size] = measure(program, directory, size)
        finally:
            shutil.rmtree(directory)

    print(f"{'instances':>12}" + "".join(f"{reader:>14}" for reader in READERS) + f"{'bytes, library':>18}{'by hand':>10}")
    for size, at in medians.items():
        times = "".join(f"{at[reader][0]:>11,.0f} ns" for reader in READERS)
        print(f"{size:>12,}{times}{at['library'][1]:>18,.0f}{at['lmdb'][1]:>10,.0f}")
    for reader, wanted in RATIOS:
        ratio = medians[COMPARED]["library"][0] / medians[COMPARED][reader][0]
        verdict = "met" if ratio <= wanted else "missed"
        print(f"GetInstances / {reader:<8} at {COMPARED:,}: {ratio:.2f}  wanted {wanted}: {verdict}")
    growth = medians[1_000_000]["library"][0] / medians[10_000]["library"][0]
    print(f"an instance of 1,000,000 / of 10,000: {growth:.2f}  wanted {GROWTH}: {'met' if growth <= GROWTH else 'missed'}")

    with tempfile.NamedTemporaryFile("w", suffix=".txt") as data:
        for size, at in medians.items():
            data.write(f"{size} " + " ".join(f"{at[reader][0] / 1000:.3f}" for reader in READERS) + "\n")
        data.flush()
        subprocess.run(["gnuplot"], input=GNUPLOT.format(plot=plot, data=data.name), text=True, check=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
