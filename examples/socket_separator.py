"""Separate sound that comes through a socket, while it comes.

    python3 socket_separator.py array.sofa scene.json PORT OUT.wav [LATENCY_MS]

A client connects to PORT of this machine and sends the samples of all microphones, interleaved
32-bit floats (little endian); OUT.wav gets a channel for each source of the scene. With
    arecord -t raw -f FLOAT_LE -c 8 -r 16000 | nc localhost PORT
it is a microphone array on another program's, or another machine's, side.
"""

import socket
import sys

import numpy as np
import soundfile
import zelksss


def blocks(connection, microphones, samples):
    """Arrays [samples, microphones] as they come; the last one may be shorter."""
    row = 4 * microphones
    received = b""
    while more := connection.recv(1 << 16):
        received += more
        while len(received) >= samples * row:
            yield np.frombuffer(received[: samples * row], "<f4").reshape(-1, microphones)
            received = received[samples * row :]
    whole = len(received) // row * row
    yield np.frombuffer(received[:whole], "<f4").reshape(-1, microphones)


def main(database, scene, port, output, latency=None):
    db = zelksss.Database.read(database)
    talkers = zelksss.Scene.read(scene)
    settings = {} if latency is None else {"latency": int(float(latency) * db.rate / 1000)}
    separator = zelksss.Separator(db, **settings)
    with (
        socket.create_server(("localhost", int(port))) as server,
        soundfile.SoundFile(output, "w", separator.rate, len(talkers.ids), "FLOAT") as file,
    ):
        port = server.getsockname()[1]  # chosen by the system for PORT 0
        print(f"port {port}: {separator.microphones} channels, {separator.rate} Hz", flush=True)
        connection = server.accept()[0]
        for block in blocks(connection, separator.microphones, separator.advance):
            play(separator.process(block, talkers), talkers.ids, file)
        play(separator.flush(), talkers.ids, file)
    print(f"separated {separator.samples / separator.rate:.2f} s")


def play(out, ids, file):
    silence = np.zeros(out.count, np.float32)
    file.write(np.stack([out.get(id, silence) for id in ids], axis=1))


if __name__ == "__main__":
    main(*sys.argv[1:])
