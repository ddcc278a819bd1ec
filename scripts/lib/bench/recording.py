"""One round of recording: what it costs to receive, mux, write and account for many streams of 4 Mbit/s.

`recorder` is lenswire record with simulated cameras; `ffmpeg` is a process per stream with -c copy to Matroska, which
takes the same pictures by RTSP over TCP, RTP packet by RTP packet, from this process. Counted is the processor time of
the recording processes over the measured seconds, by the gigabyte of video that came in them. Prints a line of JSON.
"""

import argparse
import base64
import glob
import json
import multiprocessing
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import threading
import time

FRAME_S = 0.04
CLIP_S = 8
BYTES_PER_S = 4e6 / 8
LEAST_SHARE = 0.9  # of what the cameras should have sent, for a round that counts
RTP_PAYLOAD = 1448 - 4 - 12  # of a packet with its framing, as cameras send them
WORK = pathlib.Path("recordings/bench")
PROGRAMS = pathlib.Path("build/release/bin")
SEGMENT_S = 10  # so that files are finished, and their digests taken, while it is measured
PASSWORD = {"LENSWIRE_PASSWORD": "bench", "LENSWIRE_CAMERA_PASSWORD": "bench"}


def make_clip(path):
    x264 = "keyint=50:min-keyint=50:scenecut=0:bframes=0:nal-hrd=cbr:filler=1"
    subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-f", "lavfi", "-i",
                    "testsrc2=size=1280x720:rate=25,noise=alls=20:allf=t", "-t", str(CLIP_S), "-c:v", "libx264",
                    "-preset", "ultrafast", "-b:v", "4M", "-maxrate", "4M", "-bufsize", "4M", "-pix_fmt", "yuv420p",
                    "-x264-params", x264, "-f", "h264", str(path)], check=True)


def access_units(data):
    """The NAL units of each picture."""
    units, current, has_slice = [], [], False
    for nal in (part.rstrip(b"\0") for part in re.split(b"\0\0\1", data)[1:]):
        kind = nal[0] & 31
        is_slice = kind in (1, 5)
        if has_slice and (kind in (6, 7, 8, 9) or (is_slice and nal[1] & 0x80)):
            units.append(current)
            current, has_slice = [], False
        current.append(nal)
        has_slice = has_slice or is_slice
    return [*units, current]


def rtp_packets(units, seconds):
    """For each picture its packets, with their framing on the connection."""
    sequence = 0
    for index in range(int(seconds / FRAME_S)):
        packets = []
        nals = units[index % len(units)]
        for number, nal in enumerate(nals):
            parts = [nal]
            if len(nal) > RTP_PAYLOAD:
                step = RTP_PAYLOAD - 2
                body = [nal[at:at + step] for at in range(1, len(nal), step)]
                parts = [bytes([nal[0] & 0xE0 | 28,
                                nal[0] & 31 | (0x80 if i == 0 else 0) | (0x40 if i + 1 == len(body) else 0)]) + part
                         for i, part in enumerate(body)]
            for i, part in enumerate(parts):
                last = number + 1 == len(nals) and i + 1 == len(parts)
                packets.append(b"$\0" + (len(part) + 12).to_bytes(2, "big") + bytes([0x80, 96 | (0x80 if last else 0)])
                               + (sequence & 0xFFFF).to_bytes(2, "big")
                               + (index * 3600 & 0xFFFFFFFF).to_bytes(4, "big") + b"\0\0\0\1" + part)
                sequence += 1
        yield packets


def answer_until_play(connection, description):
    """The dialogue up to PLAY."""
    waiting = b""
    while True:
        while b"\r\n\r\n" not in waiting:
            waiting += connection.recv(4096)
        request, waiting = waiting.split(b"\r\n\r\n", 1)
        method, url = request.split(b" ")[:2]
        head = b"RTSP/1.0 200 OK\r\nCSeq: " + re.search(rb"CSeq: *(\d+)", request)[1] + b"\r\nSession: 1\r\n"
        body = b""
        if method == b"OPTIONS":
            head += b"Public: OPTIONS, DESCRIBE, SETUP, PLAY\r\n"
        elif method == b"DESCRIBE":
            body = description
            head += b"Content-Base: " + url + b"/\r\nContent-Type: application/sdp\r\n"
        elif method == b"SETUP":
            head += b"Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"
        connection.sendall(head + b"Content-Length: " + str(len(body)).encode() + b"\r\n\r\n" + body)
        if method == b"PLAY":
            return


def serve(units, streams, seconds, port, sent):
    """A camera for each connection; all begin when the last has come."""
    sets = b",".join(base64.b64encode(nal) for nal in units[0] if nal[0] & 31 in (7, 8))
    description = (b"v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=bench\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\n"
                   b"a=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1; sprop-parameter-sets=" + sets +
                   b"\r\na=control:track1\r\n")
    pictures = list(rtp_packets(units, seconds))
    listener = socket.create_server(("127.0.0.1", 0), backlog=streams)
    port.value = listener.getsockname()[1]
    connections = [listener.accept()[0] for _ in range(streams)]
    dialogues = [threading.Thread(target=answer_until_play, args=(one, description)) for one in connections]
    for dialogue in dialogues:
        dialogue.start()
    for dialogue in dialogues:
        dialogue.join()
    start = time.monotonic()
    for index, packets in enumerate(pictures):
        for number, connection in enumerate(connections):
            wait = start + (index + number / streams) * FRAME_S - time.monotonic()
            if wait > 0:
                time.sleep(wait)
            try:
                for packet in packets:
                    connection.sendall(packet)
            except OSError:
                return  # the players have been ended
        sent.value += streams * sum(map(len, units[index % len(units)]))


def processor_seconds(processes):
    """What all threads of processes have spent."""
    spent = 0
    for process in processes:
        for file in glob.glob(f"/proc/{process.pid}/task/*/schedstat"):
            spent += int(pathlib.Path(file).read_text(encoding="ascii").split()[0])
    return spent / 1e9


def measure(processes, bytes_so_far, options):
    time.sleep(options.warm_up_s)
    spent, came = processor_seconds(processes), bytes_so_far()
    time.sleep(options.measure_s)
    spent, came = processor_seconds(processes) - spent, bytes_so_far() - came
    if any(process.poll() is not None for process in processes):
        sys.exit("a recording ended before its time")
    due = options.streams * BYTES_PER_S * options.measure_s
    if came < LEAST_SHARE * due:
        sys.exit(f"only {came / due:.0%} of the pictures came in time: the machine is busy elsewhere")
    return {"way": options.way, "streams": options.streams, "cpu_s": spent, "gb_per_s": came / 1e9 / options.measure_s,
            "cpu_s_per_gb": spent / (came / 1e9)}


def run_recorder(clip, options):
    environment = {**os.environ, **PASSWORD}
    log = WORK / "cameras.log"
    with open(log, "w", encoding="utf-8") as out:
        cameras = subprocess.Popen([PROGRAMS / "lenswire-camera", "--cameras", str(options.streams), "--port", "0",
                                    "--clip", f"main={clip}"], stdout=out, env=environment)
    addresses = []
    while len(addresses) < options.streams and cameras.poll() is None:
        time.sleep(0.1)
        addresses = re.findall(r"^camera (\S+) user", log.read_text(encoding="utf-8"), re.MULTILINE)
    out = WORK / "out"
    recorder = subprocess.Popen([PROGRAMS / "lenswire", "record", *["admin@" + one for one in addresses], "--out", out,
                                 "--segment", str(SEGMENT_S), "--keep-free", "0", "--summary", WORK / "summary.json"],
                                stdout=subprocess.DEVNULL, env=environment)
    try:
        def bytes_so_far():
            return sum(file.stat().st_size for file in out.glob("*/*/*.mkv"))
        result = measure([recorder], bytes_so_far, options)
    finally:
        recorder.terminate()
        recorder.wait()
        cameras.terminate()
        cameras.wait()
    result["lost"] = json.loads((WORK / "summary.json").read_text(encoding="utf-8"))["lost"]
    return result


def run_ffmpeg(clip, options):
    port, sent = multiprocessing.Value("i", 0), multiprocessing.Value("q", 0)
    units = access_units(clip.read_bytes())
    server = multiprocessing.Process(
        target=serve, args=(units, options.streams, options.warm_up_s + options.measure_s + 60, port, sent), daemon=True)
    server.start()
    while port.value == 0:
        time.sleep(0.1)
    players = [subprocess.Popen(["ffmpeg", "-nostdin", "-loglevel", "error", "-y", "-rtsp_transport", "tcp", "-i",
                                 f"rtsp://127.0.0.1:{port.value}/", "-c", "copy", WORK / "out" / f"{number}.mkv"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
               for number in range(options.streams)]
    try:
        while sent.value == 0 and server.is_alive():
            time.sleep(0.1)
        return measure(players, lambda: sent.value, options)
    finally:
        for player in players:
            player.terminate()
        for player in players:
            player.wait()
        server.terminate()


def main():
    parser = argparse.ArgumentParser(description="One round of recording, as a line of JSON.")
    parser.add_argument("--way", choices=("recorder", "ffmpeg"), default="recorder")
    parser.add_argument("--streams", type=int, default=64)
    parser.add_argument("--warm-up-s", type=float, default=12)
    parser.add_argument("--measure-s", type=float, default=20)
    options = parser.parse_args()
    shutil.rmtree(WORK, ignore_errors=True)
    (WORK / "out").mkdir(parents=True)
    clip = WORK / "clip.h264"
    make_clip(clip)
    print(json.dumps((run_recorder if options.way == "recorder" else run_ffmpeg)(clip, options)))
    shutil.rmtree(WORK, ignore_errors=True)


main()
