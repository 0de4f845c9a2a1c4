#!/usr/bin/env python3
"""Sends large form-like POST bodies to isapi-host from many connections at
once, for a while, and reports isapi-host's peak memory (VmHWM) before and
after. Not run by the test command:
    python3 bench/big_bodies.py PORT PID [SECONDS] [CONNECTIONS] [MEGABYTES]
"""
import socket
import sys
import threading
import time

port, pid = int(sys.argv[1]), int(sys.argv[2])
seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 20
connections = int(sys.argv[4]) if len(sys.argv) > 4 else 32
size = int(float(sys.argv[5]) * 1_000_000) if len(sys.argv) > 5 else 21_000_000
body = b"&".join(b"a%d" % i for i in range(size // 7))[:size]
kinds = [b"text/plain", b"Application/X-WWW-Form-Urlencoded"]
sent = [0]
answers = {}
lock = threading.Lock()


def peak():
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith(("VmHWM", "VmRSS")):
                yield line.split(":")[0] + " " + line.split()[1] + " kB"


def client(n):
    end = time.time() + seconds
    while time.time() < end:
        head = (b"POST /vigilcrest/cgi/isapiClient.dll HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                b"Content-Type: " + kinds[n % 2] + b"\r\nContent-Length: " + str(len(body)).encode() + b"\r\n\r\n")
        with socket.create_connection(("127.0.0.1", port)) as s:
            try:
                s.sendall(head + body)
            except OSError:
                pass  # answered and closed before the body was all sent
            try:
                status = s.recv(64).split(b" ")[1].decode() if True else ""
            except (OSError, IndexError):
                status = "closed"
        with lock:
            sent[0] += 1
            answers[status] = answers.get(status, 0) + 1


print("before:", ", ".join(peak()))
threads = [threading.Thread(target=client, args=(i,)) for i in range(connections)]
for t in threads:
    t.start()
for t in threads:
    t.join()
print(f"{sent[0]} requests of {len(body)} bytes from {connections} connections in {seconds:.0f} s; answers {answers}")
print("after:", ", ".join(peak()))
