"""Tables for people, the goals, and the part of docs/performance.md that a run writes."""

from dataclasses import dataclass

import figures
import plot
from rounds import PACINGS

NAMES = {"plugin": "plug-in", "bare": "bare loop", "gather": "bare loop that gathers as long",
         "copy": "loop with one copy", "avformat": "libavformat"}
PACING_TEXT = {
    "whole": "whole frames at once",
    "spread": "frames spread as a 100 Mbit/s link spreads them",
    "unpaced": "as fast as the receiver takes them",
}
BEGIN, END = "<!-- figures: begin, written by scripts/bench -->", "<!-- figures: end -->"


def table(head, rows):
    lines = ["| " + " | ".join(row) + " |" for row in [head, *rows]]
    return "\n".join([lines[0], "|" + "---|" * len(head), *lines[1:]])


@dataclass
class Goal:
    text: str
    limit: float
    measured: figures.Figure
    digits: int = 2

    def met(self):
        return self.measured.median <= self.limit

    def row(self):
        measured = self.measured
        same = measured.low == measured.high
        shown = f"{measured.median:.{self.digits}f}" if same else measured.text(self.digits)
        return [self.text, f"{self.limit:g}", shown, "met" if self.met() else "**missed**"]


class Report:
    def __init__(self, groups, extent, machine, micro, sizes, loads):
        self.groups = {group.name: group for group in groups}
        self.extent, self.machine, self.micro = extent, machine, micro
        self.sizes, self.loads = sizes, loads

    def streams(self, pacing, count):
        return self.groups.get(f"streams/{pacing}/{count}")

    # -- Goals.

    def goals(self):
        for pacing in ("whole", "spread"):
            for count, limit in ((64, 0.7), (192, 0.5)):
                yield self._ratio_goal(pacing, count, "bare", limit)
                if pacing == "whole":
                    yield self._ratio_goal(pacing, count, "gather", 1.25)
            for count in (64, 192):
                yield from self._delay_goals(pacing, count)
            yield self._ratio_goal(pacing, 64, "avformat", 0.25)
        for count in (64, 192):
            yield self._ratio_goal("unpaced", count, "copy", 1.1)
            yield self._lost_goal("unpaced", count)
        for name, text in (("one", "one thread"), ("many", "64 threads on 64 cameras")):
            median = figures.ratio(self.groups[f"control/{name}"], "library", "floor", "round_trip_us.median")
            yield Goal(f"control, {text}: median round trip by the floor's", 1.1, median)
        upload = figures.ratio(self.groups["upload"], "library", "plain", "cpu_s_per_gb")
        yield Goal("upload: processor time per gigabyte by the plain loop's", 0.5, upload)
        size = figures.figure([self.sizes["armhf"][0] / 1000])
        yield Goal("size of the stripped armhf library, KB", 100, size, 1)
        whole = figures.ratio(self.groups["recording"], "recorder", "ffmpeg", "cpu_s_per_gb")
        yield Goal("recording, 64 streams: processor time by ffmpeg's", 0.25, whole)
        yield from self._prompt_goals()
        for way, limit in (("nothing", 0.3), ("192 silent streams and cameras", 0.8)):
            yield Goal(f"idle, {way}: % of a core", limit, figures.of(self.groups["idle"], way, "core_percent"))
        memory = self.groups["memory"]
        yield Goal("allocations per frame", 0, figures.of(memory, "full", "allocations_per_frame"), 0)
        yield Goal("allocations per get (the host's own)", 1, figures.of(memory, "full", "allocations_per_get"), 0)

    def _prompt_goals(self):
        group = self.groups["prompt"]
        for key, text, limit in (("request_to_slot_ms.median", "request to slot, median", 0.3),
                                 ("request_to_slot_ms.max", "request to slot, longest", 3),
                                 ("quiet_request_to_slot_ms.max", "request that nothing announced, longest", 6),
                                 ("request_to_frame_ms.median", "request to the first waiting frame, median", 1.5),
                                 ("close_to_cleared_ms.max", "close to cleared table, longest", 3),
                                 ("stop_ms", "PC_UnInitCtx", 50)):
            yield Goal(f"{text}, ms", limit, figures.of(group, "library", key))
        first = figures.figure(figures.pick(one, "first_answer_ms.median") / figures.pick(one, "later_answer_ms.median")
                               for one in group.results["library"])
        yield Goal("first answer after a login by later ones, medians", 1.1, first)

    def _ratio_goal(self, pacing, count, other, limit):
        measured = figures.ratio(self.streams(pacing, count), "plugin", other, "cpu_s_per_gb")
        return Goal(f"{count} streams, {pacing}: processor time by the {NAMES[other]}'s", limit, measured)

    def _delay_goals(self, pacing, count):
        group = self.streams(pacing, count)
        for key, text, limit in (("median", "median delay", 2), ("p99", "99th percentile of the delay", 15)):
            delay = figures.of(group, "plugin", f"delay_us.{key}").scaled(1e-3)
            yield Goal(f"{count} streams, {pacing}: {text} once it can be taken, ms", limit, delay)
        yield self._lost_goal(pacing, count)

    def _lost_goal(self, pacing, count):
        group = self.streams(pacing, count)
        lost = figures.total(group, "plugin", "frames.lost") + figures.total(group, "plugin", "frames.wrong")
        return Goal(f"{count} streams, {pacing}: frames lost or wrong, all rounds", 0, figures.figure([lost]), 0)

    def goal_table(self):
        head = ["goal", "at most", "median (least to greatest round)", ""]
        return table(head, [goal.row() for goal in self.goals()])

    # -- Tables.

    def stream_table(self, pacing):
        rows = []
        for count in self.extent.streams[pacing]:
            group = self.streams(pacing, count)
            for way in group.results:
                rows.append(self._stream_row(group, count, way, pacing))
        head = ["streams", "receiver", "CPU s/GB", "of the bare loop's", "GB/s", "receiver's sleeps/s", "lost"]
        if pacing == "unpaced":
            return table(head, rows)
        return table([*head, "delay, median ms", "99th percentile ms", "from the last byte, median ms",
                      "sender late at most ms"], rows)

    def _stream_row(self, group, count, way, pacing):
        sleeps = figures.figure(sum(thread["sleeps_per_s"] for name, thread in result["threads"].items()
                                    if name in ("receive_loop", "loop", "reader"))
                                for result in group.results[way])
        delivers_frames = "frames" in group.results[way][0]
        lost = str(figures.total(group, way, "frames.lost")) if delivers_frames else ""
        row = [str(count), NAMES[way], figures.of(group, way, "cpu_s_per_gb").text(),
               figures.ratio(group, way, "bare", "cpu_s_per_gb").text(),
               figures.of(group, way, "gb_per_s").text(3), sleeps.text(0), lost]
        if pacing == "unpaced":
            return row
        delays = ["", "", ""]
        if delivers_frames:
            delays = [figures.of(group, way, key).scaled(1e-3).text()
                      for key in ("delay_us.median", "delay_us.p99", "delay_from_last_byte_us.median")]
        late = figures.of(group, way, "sender.worst_delay_us").scaled(1e-3)
        return [*row, *delays, f"{late.high:.1f}"]

    def thread_table(self):
        rows = []
        for count in self.extent.streams["whole"]:
            group = self.streams("whole", count)
            shares = []
            for thread in ("receive_loop", "event_loop", "queue", "consumer"):
                cpu = figures.figure(100 * figures.pick(result, f"threads.{thread}.cpu_s") / result["seconds"]
                                     for result in group.results["plugin"])
                shares.append(f"{cpu.median:.2f}")
            per_stream = figures.figure(1e6 * result["cpu_s"] / result["seconds"] / count
                                        for result in group.results["plugin"])
            rows.append([str(count), *shares, per_stream.text(0)])
        return table(["streams", "receive loop %", "event loop %", "queue thread %", "the host's consumer %",
                      "µs per stream and second"], rows)

    def control_table(self):
        rows = []
        for name, text in (("one", "one thread, without pause"), ("many", "64 threads on 64 cameras"),
                           ("seldom", "one thread, a get every 50 ms")):
            group = self.groups[f"control/{name}"]
            for way in ("library", "floor"):
                median, high = (figures.of(group, way, f"round_trip_us.{key}") for key in ("median", "p99"))
                rows.append([text, way, median.text(0), high.text(0)])
        return table(["gets", "way", "median µs", "99th percentile µs"], rows)

    def upload_table(self):
        group = self.groups["upload"]
        return table(["way", "CPU s/GB", "of the plain loop's", "wall s"],
                     [[way, figures.of(group, way, "cpu_s_per_gb").text(3),
                       figures.ratio(group, way, "plain", "cpu_s_per_gb").text(),
                       figures.of(group, way, "wall_s").text()] for way in group.ways])

    def idle_table(self):
        group = self.groups["idle"]
        rows = []
        for way in group.ways:
            shares = [f"{figures.of(group, way, f'threads.{thread}.core_percent').median:.3f}"
                      if thread in group.results[way][0]["threads"] else ""
                      for thread in ("receive_loop", "event_loop", "queue")]
            sleeps = figures.figure(sum(thread["sleeps_per_s"] for thread in result["threads"].values())
                                    for result in group.results[way])
            rows.append([way, figures.of(group, way, "core_percent").text(),
                         *shares, sleeps.text(0)])
        return table(["open", "% of a core", "receive loop", "event loop", "queue thread",
                      "sleeps/s of all three"], rows)

    def prompt_table(self):
        group = self.groups["prompt"]
        rows = []
        for key, text in (("request_to_slot", "request to slot"),
                          ("quiet_request_to_slot", "request to slot, announced by nothing"),
                          ("request_to_frame", "request to the first waiting frame"),
                          ("close_to_cleared", "close to cleared table"),
                          ("first_answer", "first answer after a login"), ("later_answer", "later answers")):
            rows.append([text, *(figures.of(group, "library", f"{key}_ms.{kind}").text() for kind in ("median", "max"))])
        rows.append(["PC_UnInitCtx", figures.of(group, "library", "stop_ms").text(), ""])
        return table(["from, to", "median ms", "longest ms"], rows)

    def recording_table(self):
        group = self.groups["recording"]
        return table(["way", "CPU s/GB", "of ffmpeg's", "GB/s"],
                     [[way, figures.of(group, way, "cpu_s_per_gb").text(),
                       figures.ratio(group, way, "ffmpeg", "cpu_s_per_gb").text(),
                       figures.of(group, way, "gb_per_s").text(3)] for way in group.ways])

    def memory_table(self):
        group = self.groups["memory"]
        rows = []
        for preset, (file_bytes, table_bytes) in self.sizes.items():
            rows.append([f"library file, stripped, {preset}", f"{file_bytes / 1000:.1f} KB"])
            rows.append([f"static data and tables, {preset}", f"{table_bytes / 1000:.0f} KB"])
        pages, written = (figures.of(group, "full", f"library_{kind}_kb").median * 1.024
                          for kind in ("resident", "written"))
        rows.append(["pages of the library in memory, 192 clients and 192 streams", f"{pages:.0f} KB"])
        rows.append(["of these written to", f"{written:.0f} KB"])
        stacks = [(f"stack of the {thread.replace('_', ' ')} ever used, of 1 MiB",
                   figures.of(group, "full", f"stack_bytes.{thread}").high / 1000)
                  for thread in ("receive_loop", "event_loop", "queue")]
        for text, used in stacks:
            rows.append([text, f"{used:.1f} KB"])
        rows.append(["beyond the host's own: pages and these stacks",
                     f"{pages + sum(used for _, used in stacks):.0f} KB"])
        upgrade = figures.of(self.groups["upload"], "library", "stack_bytes").high / 1000
        rows.append(["stack of an upgrade thread ever used, while a job runs", f"{upgrade:.1f} KB"])
        return table(["memory", ""], rows)

    def micro_table(self):
        return table(["piece", "CPU ns"], [[one["name"], f"{one['cpu_ns']:.0f}"] for one in self.micro])

    # -- Plots.

    def plots(self):
        """File name to SVG."""
        for pacing in PACINGS:
            counts = self.extent.streams[pacing]
            cost = plot.Plot(f"Processor time: {PACING_TEXT[pacing]}", "CPU seconds per gigabyte", counts, True)
            for way, name in NAMES.items():
                if way not in self.streams(pacing, counts[0]).results:
                    continue
                cost.add(name, [figures.of(self.streams(pacing, count), way, "cpu_s_per_gb") for count in counts])
            yield f"cost-{pacing}.svg", cost.svg()
        counts = self.extent.streams["spread"]
        delay = plot.Plot("Delay of the plug-in's pictures once they can be taken", "microseconds", counts, True)
        for pacing in ("whole", "spread"):
            for key, text in (("median", "median"), ("p99", "99th perc.")):
                delay.add(f"{pacing}, {text}", [figures.of(self.streams(pacing, count), "plugin", f"delay_us.{key}")
                                                for count in counts])
        yield "delay.svg", delay.svg()

    # -- Documents.

    def machine_list(self):
        lines = [f"- {key}: {value}" for key, value in self.machine.items()]
        lines.append(f"- load of the machine before and after the run: {self.loads[0]:.1f}, {self.loads[1]:.1f}")
        lines.append(f"- {self.extent.rounds} rounds, {self.extent.measure_ms / 1000:g} s each for streams")
        return "\n".join(lines)

    def sections(self):
        yield "Machine", self.machine_list()
        yield "Goals", self.goal_table()
        for pacing in PACINGS:
            yield f"Streams: {PACING_TEXT[pacing]}", self.stream_table(pacing)
        yield "Threads and growth: the plug-in, whole frames", self.thread_table()
        yield "Control: round trips of a get", self.control_table()
        yield "Upload: 16 MiB to 64 cameras", self.upload_table()
        yield "Recording: 64 streams of 4 Mbit/s to Matroska files", self.recording_table()
        yield "Promptness", self.prompt_table()
        yield "Idle", self.idle_table()
        yield "Memory and size", self.memory_table()
        yield "Small pieces", self.micro_table()

    def text(self):
        return "\n\n".join(f"### {title}\n\n{body}" for title, body in self.sections()) + "\n"

    def write_into(self, document, folder):
        """Replaces the figures in the document, and the plots in the folder beside it."""
        folder.mkdir(exist_ok=True)
        images = []
        for name, svg in self.plots():
            (folder / name).write_text(svg, encoding="utf-8")
            images.append(f"![{name.removesuffix('.svg')}]({folder.name}/{name})")
        before, rest = document.read_text(encoding="utf-8").split(BEGIN)
        after = rest.split(END)[1]
        body = f"{BEGIN}\n\n" + "\n".join(images) + f"\n\n{self.text()}\n{END}"
        document.write_text(before + body + after, encoding="utf-8")
