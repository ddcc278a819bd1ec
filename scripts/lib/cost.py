"""Counts instructions of fixed work and compares them with those kept; started by scripts/cost."""

import json
import pathlib
import platform
import re
import subprocess
import sys
import tempfile
from collections import defaultdict

KEPT = pathlib.Path("bench/cost/instructions.json")
PROGRAMS = pathlib.Path("build/release/bin")
MOST_GROWTH = 0.02
LISTED_SHARE = 0.005  # functions below this share of their part are kept as one
COUNTED_SHARE = 0.01  # parts below this share of the whole are not compared
LEAF = ("libc.so", "ld-linux")  # what these spend is their caller's

# Of each work the program with its arguments, and the objects that count; None: all of them.
WORKS = {
    "library, per frame": (["lenswire-cost", "frames"], {"liblenswire.so"}),
    "library, per get": (["lenswire-cost", "gets"], {"liblenswire.so"}),
    "library, per pushed motion": (["lenswire-cost", "pushes"], {"liblenswire.so"}),
    "recorder, per frame": (["lenswire-cost-recorder", "FOLDER", "camera/clips"], None),
}
# The work's own cameras and network.
DRIVERS = re.compile(r"lenswire::(bench|camera)::|count_instructions|^main$|^\(below main\)$")
# Keeps what libc and libcrypto do from depending on much of the processor, or on the length of an environment.
ENVIRONMENT = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-AVX,-ERMS,-FSRM,-SSSE3,-SSE4_1,-SSE4_2",
               "OPENSSL_ia32cap": "~0x1200020000000000:0"}


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def processor():
    match = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8"), re.M)
    return match[1] if match else platform.machine()


# What the figures depend on beside this project. libcrypto and libav choose their code by the processor.
def toolchain():
    versions = [subprocess.run(["pkg-config", "--modversion", name], capture_output=True, text=True, check=True).stdout
                for name in ("libcrypto", "libavformat", "libavutil")]
    return {"machine": platform.machine(), "processor": processor(), "compiler": first_line("g++", "--version"),
            "libc": first_line("ldd", "--version"), "valgrind": first_line("valgrind", "--version"),
            "libcrypto, libavformat, libavutil": " ".join(versions).split()}


def profile(command, out):
    """How often the work was done, and the lines of its profile."""
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:
        program = [str(PROGRAMS / command[0]), *(folder if word == "FOLDER" else word for word in command[1:])]
        done = subprocess.run(["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={out}",
                               "--compress-strings=no", "--compress-pos=no", "--collect-atstart=no",
                               "--toggle-collect=*count_instructions*", *program],
                              capture_output=True, text=True, timeout=300, check=False, env=ENVIRONMENT)
    if done.returncode != 0:
        sys.exit(f"{' '.join(program)} failed:\n{done.stdout}{done.stderr}")
    return int(done.stderr.split()[-1]), out.read_text(encoding="utf-8").splitlines()


def function_name(text):
    """Without the arguments."""
    text = text.replace("(anonymous namespace)::", "").replace("operator()", "operator")
    return text.split("(")[0]


def count_by_function(lines):
    """{object: {function: instructions}}, calls of leaf objects counted as their caller's."""
    counts = defaultdict(lambda: defaultdict(int))
    place = {}
    called = False
    for line in lines:
        key, _, value = line.partition("=")
        if key == "ob":
            place = {"ob": pathlib.Path(value).name}
        elif key == "fn":
            place = {"ob": place["ob"], "fn": value}
        elif key in ("cob", "cfn"):
            place[key] = pathlib.Path(value).name if key == "cob" else value
        elif key == "calls":
            called = True
        elif re.match(r"[\d+*-]", line):
            cost = int(line.split()[1])
            caller, callee = place["ob"], place.get("cob", place["ob"])
            if not called:
                counts[caller][place["fn"]] += cost
            elif callee.startswith(LEAF) and not caller.startswith(LEAF):
                counts[caller][place["fn"]] += cost
            if called:
                place.pop("cob", None)
                called = False
    return counts


def parts_of(lines, objects):
    parts = {}
    for name, functions in count_by_function(lines).items():
        if name.startswith((*LEAF, "liblenswire-cost-network")) or (objects and name not in objects):
            continue
        mine = defaultdict(int)
        for function, cost in functions.items():
            if not DRIVERS.search(function):
                mine[function_name(function)] += cost
        parts["recorder" if name == "lenswire-cost-recorder" else name] = dict(mine)
    return parts


def summarize(parts, count):
    """Per unit: each part's instructions and those of its larger functions."""
    whole = sum(sum(functions.values()) for functions in parts.values())
    result = {"total": round(whole / count, 1), "parts": {}}
    for name, functions in sorted(parts.items(), key=lambda part: -sum(part[1].values())):
        total = sum(functions.values())
        if total < COUNTED_SHARE * whole:
            continue
        listed = {function: round(cost / count, 1) for function, cost in
                  sorted(functions.items(), key=lambda item: (-item[1], item[0]))
                  if cost >= LISTED_SHARE * total and not function.startswith("0x")}
        result["parts"][name] = {"total": round(total / count, 1), "functions": listed}
    return result


def grown_functions(now, kept):
    growth = {function: cost - kept.get(function, 0) for function, cost in now.items()}
    return sorted(((cost, function) for function, cost in growth.items() if cost > 0), reverse=True)[:5]


def compare(name, now, kept):
    """The lines that say what grew too much."""
    faults = []
    for part, figures in now["parts"].items():
        before = kept["parts"].get(part)  # none of another version of a library
        if before is None or figures["total"] <= before["total"] * (1 + MOST_GROWTH):
            continue
        faults.append(f"{name}: {part} takes {figures['total']:.0f} instructions, {before['total']:.0f} before")
        faults += [f"    {function}: {cost:.0f} more"
                   for cost, function in grown_functions(figures["functions"], before["functions"])]
    return faults


def main():
    if sys.argv[1:] not in ([], ["--update"]):
        sys.exit("usage: scripts/cost [--update]")
    out = pathlib.Path("build/cost")
    out.mkdir(exist_ok=True)
    counted = {}
    for number, (name, (command, objects)) in enumerate(WORKS.items()):
        count, lines = profile(command, out / f"callgrind.{number}")
        counted[name] = summarize(parts_of(lines, objects), count)
        inside = ", ".join(f"{part} {figures['total']:.0f}" for part, figures in counted[name]["parts"].items())
        print(f"{name}: {counted[name]['total']:.0f} instructions" + (f" ({inside})" if objects is None else ""))
    if sys.argv[1:]:
        KEPT.write_text(json.dumps({"toolchain": toolchain(), "works": counted}, indent=1) + "\n", encoding="utf-8")
        print(f"Written: {KEPT}")
        return 0
    kept = json.loads(KEPT.read_text(encoding="utf-8"))
    if kept["toolchain"] != toolchain():
        print(f"Not compared: the figures kept are of {kept['toolchain']}, these of {toolchain()}")
        return 0
    faults = [line for name, now in counted.items() for line in compare(name, now, kept["works"][name])]
    print("\n".join(faults) if faults else f"None is more than {MOST_GROWTH:.0%} above what is kept")
    return 1 if faults else 0


sys.exit(main())
