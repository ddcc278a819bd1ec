"""What the figures were measured on, and with what."""

import os
import platform
import re
import subprocess
import time


def _first_line(command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]
    except (OSError, subprocess.CalledProcessError, IndexError):
        return "unknown"


def _read(path, pattern):
    try:
        with open(path, encoding="utf-8") as file:
            found = re.search(pattern, file.read(), re.MULTILINE)
    except OSError:
        found = None
    return found.group(1).strip().strip('"') if found else "unknown"


def describe():
    memory = _read("/proc/meminfo", r"^MemTotal:\s+(\d+) kB")
    gigabytes = f"{int(memory) / 1e6:.0f} GB" if memory != "unknown" else memory
    virtual = "virtual machine" if "hypervisor" in _read("/proc/cpuinfo", r"^flags\s*:(.*)$") else "bare metal"
    return {
        "date": time.strftime("%Y-%m-%d"),
        "processor": f"{_read('/proc/cpuinfo', r'^model name.*?:(.*)$')}, {os.cpu_count()} cores, {virtual}",
        "memory": gigabytes,
        "kernel": platform.release().split("-")[0],
        "system": _read("/etc/os-release", r"^PRETTY_NAME=(.*)$"),
        "compiler": _first_line(["c++", "--version"]),
        "library": "release build: -Os",
    }


def load():
    """How many threads wanted to run, on average over the last minute."""
    return os.getloadavg()[0]


def library_sizes(strip, library):
    """Bytes of the stripped file, and of its static tables."""
    stripped = library + ".stripped"
    subprocess.run([strip, "-o", stripped, library], check=True)
    size = os.path.getsize(stripped)
    os.remove(stripped)
    sections = subprocess.run(["size", "-A", library], capture_output=True, text=True, check=True).stdout
    tables = sum(int(bytes_) for bytes_ in re.findall(r"^\.(?:bss|data)\s+(\d+)", sections, re.MULTILINE))
    return size, tables
