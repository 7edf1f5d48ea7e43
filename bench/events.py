"""events.py BIN: what events cost between processes, next to the wake-up floor and a signal over D-Bus."""

import pathlib
import statistics
import subprocess
import sys

CHANGES = 1_000
PERIOD_US = 20_000
CHANNELS = ["library", "floor", "dbus"]
RUNS = 5


def run(program, *arguments):
    line = subprocess.run([program, *map(str, arguments)], check=True, capture_output=True, text=True)
    return [[float(word) for word in row.split()] for row in line.stdout.splitlines()]


def verdict(value, wanted):
    return f"wanted {wanted}: {'met' if value <= wanted else 'missed'}"


def latency(program):
    # A bus of its own, with nobody else on it.
    command = ["dbus-run-session", "--", program, "latency", str(CHANGES), str(PERIOD_US)]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    rows = [[float(word) / 1000 for word in row.split()] for row in output.splitlines()]
    columns = {name: sorted(column) for name, column in zip(CHANNELS, zip(*rows))}
    print(f"  from the sender's return to the receiver, {CHANGES:,} changes at {1_000_000 // PERIOD_US} a second:")
    middle, late = {}, {}
    for name, column in columns.items():
        middle[name] = statistics.median(column)
        late[name] = column[len(column) * 99 // 100]
        print(f"    {name:<8} median {middle[name]:>7.1f} us   99th percentile {late[name]:>7.1f} us")
    print(f"    library / floor: {middle['library'] / middle['floor']:.2f}  "
          f"{verdict(middle['library'] / middle['floor'], 3.0)};  99th {late['library'] / late['floor']:.2f}")
    print(f"    library / dbus:  {middle['library'] / middle['dbus']:.2f}  "
          f"{verdict(middle['library'] / middle['dbus'], 1.0)};  99th {late['library'] / late['dbus']:.2f}")


def following(program):
    print("  one writer that puts as fast as it can, 5,000 changes:")
    results = {count: [] for count in (0, 1, 10)}
    for _ in range(RUNS):
        for count, result in results.items():
            result.append(run(program, "follow", count, 5_000)[0])
    medians = {count: [statistics.median(column) for column in zip(*rows)] for count, rows in results.items()}
    for count, (wall, used, last) in medians.items():
        text = f"    {count:>2} processes watch: {5_000 / wall:>7,.0f} puts/s, {used / 5_000 * 1e6:>5.1f} us of processor a put"
        if count:
            text += f"; {5_000 / last:>7,.0f} events/s in each"
        print(text)
    alone = medians[0][1]
    for count in (1, 10):
        print(f"    a subscription costs the writer {(medians[count][1] - alone) / 5_000 / count * 1e6:.2f} us a put of its "
              f"processor time, {100 * (medians[count][1] / alone - 1) / count:.1f}% (with {count})")


def draining(program):
    print("  20,000 changes in one commit:")
    for count in (1, 10):
        rows = [run(program, "drain", count, 20_000)[0] for _ in range(RUNS)]
        last = statistics.median(row[1] for row in rows)
        print(f"    {count:>2} processes: {20_000 / last:>9,.0f} events/s in each, {count * 20_000 / last:>9,.0f} together")


def idling(program):
    used = run(program, "idle", 100, 60)[0][0]
    print(f"  100 idle subscriptions WITHIN 1: {used:.3f} processor seconds a minute  {verdict(used, 0.1)}")


def main(bin_directory):
    program = str(pathlib.Path(bin_directory) / "event_bench")
    latency(program)
    following(program)
    draining(program)
    idling(program)


if __name__ == "__main__":
    main(*sys.argv[1:])
