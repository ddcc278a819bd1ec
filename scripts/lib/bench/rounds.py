"""Which rounds there are, and running them: A B A B, so that a noisy moment hits every way alike."""

import json
import subprocess
import sys
from dataclasses import dataclass, field

RECORDING = "scripts/lib/bench/recording.py"
PACINGS = ("whole", "spread", "unpaced")
RECEIVERS = ("plugin", "bare", "gather", "copy", "avformat")


@dataclass
class Group:
    """Ways of doing the same thing, run in turn. ways: name to arguments of lenswire-bench, or to a script's."""

    name: str
    ways: dict
    results: dict = field(default_factory=dict)


@dataclass
class Extent:
    rounds: int
    streams: dict  # counts by pacing
    warm_up_ms: int
    measure_ms: int
    control_ms: int
    idle_ms: int
    recording_s: int


FEW = (64, 192)
FULL = Extent(rounds=5, streams={"whole": (1, 16, *FEW), "spread": FEW, "unpaced": FEW},
              warm_up_ms=1000, measure_ms=3000, control_ms=3000, idle_ms=4000, recording_s=20)
QUICK = Extent(rounds=3, streams=dict.fromkeys(PACINGS, FEW),
               warm_up_ms=1000, measure_ms=2000, control_ms=1000, idle_ms=2000, recording_s=10)

# The library polls the host's queue closely for ten seconds after something that announces a request.
EXPECTING_MS = 10300


def warm_up_ms(way, extent):
    return extent.warm_up_ms + (EXPECTING_MS if way == "plugin" else 0)


def stream_groups(extent):
    for pacing in PACINGS:
        for count in extent.streams[pacing]:
            common = ["streams", f"--pacing={pacing}", f"--streams={count}", f"--measure-ms={extent.measure_ms}"]
            yield Group(f"streams/{pacing}/{count}",
                        {way: common + [f"--receiver={way}", f"--warm-up-ms={warm_up_ms(way, extent)}"]
                         for way in RECEIVERS if pacing != "unpaced" or way != "gather"})


def control_groups(extent):
    for name, threads, pause_us in (("one", 1, 0), ("many", 64, 0), ("seldom", 1, 50000)):
        common = ["control", f"--threads={threads}", f"--pause-us={pause_us}", f"--measure-ms={extent.control_ms}"]
        yield Group(f"control/{name}", {way: common + [f"--way={way}"] for way in ("library", "floor")})


def all_groups(extent):
    groups = [*stream_groups(extent), *control_groups(extent)]
    groups.append(Group("upload", {way: ["upload", f"--way={way}"] for way in ("library", "plain", "sendfile")}))
    groups.append(Group("prompt", {"library": ["prompt"]}))
    idle = ["idle", f"--measure-ms={extent.idle_ms}"]
    groups.append(Group("idle", {
        "nothing": idle,
        "192 silent streams and cameras": [*idle, "--streams=192"],
        "only a thread that polls so seldom": [*idle, "--way=poller"],
        "nothing, a request expected": [*idle, "--settle-ms=0"],
    }))
    groups.append(Group("memory", {"full": ["memory"]}))
    groups.append(Group("recording", {way: [RECORDING, f"--way={way}", f"--measure-s={extent.recording_s}"]
                                      for way in ("recorder", "ffmpeg")}))
    return groups


def run_one(program, arguments, say):
    """A round that gives up, on a machine that was busy elsewhere for a moment, is tried once more."""
    command = [sys.executable, *arguments] if arguments[0] == RECORDING else [program, *arguments]
    for _ in range(2):
        done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
        if done.returncode == 0:
            return json.loads(done.stdout)
        say(f"{' '.join(command)} failed:\n{done.stderr}")
    return sys.exit(2)


def run(program, groups, extent, say):
    """Fills the groups' results: a list per way, one entry per round."""
    for group in groups:
        for number in range(extent.rounds):
            say(f"{group.name}, round {number + 1} of {extent.rounds}")
            for way, arguments in group.ways.items():
                group.results.setdefault(way, []).append(run_one(program, arguments, say))


def run_micro(program):
    done = subprocess.run([program, "--benchmark_format=json", "--benchmark_repetitions=5",
                           "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.1"],
                          capture_output=True, text=True, timeout=600, check=True)
    return [{"name": one["run_name"], "cpu_ns": one["cpu_time"]}
            for one in json.loads(done.stdout)["benchmarks"] if one["aggregate_name"] == "median"]
