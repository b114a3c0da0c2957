"""The servers of the bench, all on 127.0.0.1: nginx with and without TLS, the slow link before it, and a
server that falls silent."""
import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import urllib.request

ROUND_TRIP_MS = 20
BYTES_PER_SECOND = 20_000_000 // 8

CONFIGURATION = """
{user}
daemon off;
worker_processes 1;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{ worker_connections 2048; }}
http {{
  log_format figures '$arg_run $status $bytes_sent $ssl_session_reused $request_completion';
  access_log {folder}/access.log figures;
  client_body_temp_path {folder}/body;
  proxy_temp_path {folder}/proxy;
  fastcgi_temp_path {folder}/fastcgi;
  uwsgi_temp_path {folder}/uwsgi;
  scgi_temp_path {folder}/scgi;
  keepalive_requests 1000000;
  sendfile on;
  root {root};
  ssl_certificate {folder}/server.pem;
  ssl_certificate_key {folder}/server.key;
  ssl_session_cache shared:bench:10m;
  server {{
    listen 127.0.0.1:{http};
    location = /status {{ stub_status; access_log off; }}
  }}
  server {{ listen 127.0.0.1:{https} ssl; }}
}}
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def await_port(port, process):
    deadline = time.monotonic() + 20
    while time.monotonic() < deadline and process.poll() is None:
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                return
        time.sleep(0.02)
    raise SystemExit(f"nobody came to listen on port {port}")


def openssl(folder, *arguments):
    subprocess.run(["openssl", *arguments], cwd=folder, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)


def make_authority(folder):
    """A private authority and a certificate of 127.0.0.1 that it signed."""
    openssl(folder, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out",
            "ca.pem", "-days", "2", "-subj", "/CN=Bench CA")
    openssl(folder, "req", "-newkey", "rsa:2048", "-nodes", "-keyout", "server.key", "-out",
            "server.csr", "-subj", "/CN=127.0.0.1")
    with open(os.path.join(folder, "names"), "w", encoding="utf-8") as file:
        file.write("subjectAltName=IP:127.0.0.1\n")
    openssl(folder, "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
            "-CAcreateserial", "-out", "server.pem", "-days", "2", "-extfile", "names")


class SilentServer:
    """Sends a response with the whole resource's size, its first bytes, and then nothing more."""

    def __init__(self, size, start):
        self.size = size
        self.start = start
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.kept = []
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.kept.append(client)
            threading.Thread(target=self.answer, args=(client,), daemon=True).start()

    def answer(self, client):
        head = b""
        try:
            while b"\r\n\r\n" not in head:
                piece = client.recv(4096)
                if not piece:
                    return
                head += piece
            first = 0
            for line in head.decode("latin-1").split("\r\n"):
                if line.lower().startswith("range: bytes="):
                    first = int(line.split("=")[1].split("-")[0])
            ranged = b"\r\nrange:" in head.lower()
            lines = ["HTTP/1.1 206 Partial Content" if ranged else "HTTP/1.1 200 OK",
                     f"Content-Length: {self.size - first}", "Accept-Ranges: bytes"]
            if ranged:
                lines.append(f"Content-Range: bytes {first}-{self.size - 1}/{self.size}")
            client.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
            client.sendall(self.start[first:])
        except OSError:
            return  # the client has left, as the measurement expects

    def close(self):
        self.listener.close()
        for client in self.kept:
            client.close()


class Servers:
    """files: {bytes: path} of the served files, all in one folder."""

    def __init__(self, build, files):
        self.build = build
        self.files = files
        self.size = max(files)
        self.folder = tempfile.mkdtemp()
        self.run = 0
        self.log_read = 0
        self.http, self.https = free_port(), free_port()

    def __enter__(self):
        make_authority(self.folder)
        self.ca = os.path.join(self.folder, "ca.pem")
        with open(os.path.join(self.folder, "nginx.conf"), "w", encoding="utf-8") as file:
            file.write(CONFIGURATION.format(user="user root;" if os.getuid() == 0 else "",
                                            folder=self.folder, root=os.path.dirname(self.files[self.size]),
                                            http=self.http, https=self.https))
        program = shutil.which("nginx", path=os.environ["PATH"] + ":/usr/sbin:/sbin")
        self.nginx = subprocess.Popen([program, "-p", self.folder, "-e",
                                       os.path.join(self.folder, "error.log"), "-c",
                                       os.path.join(self.folder, "nginx.conf")])
        await_port(self.http, self.nginx)
        self.link = subprocess.Popen(
            [os.path.join(self.build, "bench", "bench-slow-link"), str(self.http),
             str(ROUND_TRIP_MS), str(BYTES_PER_SECOND)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.link_port = int(self.link.stdout.readline())
        with open(self.files[self.size], "rb") as file:
            self.silent = SilentServer(self.size, file.read(1 << 21))
        return self

    def __exit__(self, *_):
        self.silent.close()
        self.link.stdin.close()
        self.link.wait(timeout=20)
        self.nginx.terminate()
        self.nginx.wait(timeout=20)
        shutil.rmtree(self.folder)

    def begin(self, way, size):
        """The URL of the next run; it identifies the run in the log."""
        self.run += 1
        name = f"{os.path.basename(self.files[size])}?run={self.run}"
        return {"local": self.files[size],
                "http": f"http://127.0.0.1:{self.http}/{name}",
                "https": f"https://127.0.0.1:{self.https}/{name}",
                "link": f"http://127.0.0.1:{self.link_port}/{name}",
                "silent": f"http://127.0.0.1:{self.silent.port}/{name}"}[way]

    def end(self, way):
        """What the server sent for the run, from its log, after its connections have ended."""
        if way in ("local", "silent"):
            return {}
        self.await_idle()
        requests = sent = resumed = 0
        with open(os.path.join(self.folder, "access.log"), encoding="utf-8") as file:
            file.seek(self.log_read)
            for line in file:
                fields = line.split()
                if fields[0] != str(self.run):
                    raise SystemExit(f"the log has a line of another run: {line}")
                requests += 1
                sent += int(fields[2])
                resumed += fields[3] == "r"
            self.log_read = file.tell()
        return {"requests": requests, "sent": sent, "resumed": resumed}

    def await_idle(self):
        deadline = time.monotonic() + 60
        url = f"http://127.0.0.1:{self.http}/status"
        while time.monotonic() < deadline:
            with urllib.request.urlopen(url, timeout=20) as answer:
                if answer.read().startswith(b"Active connections: 1 "):
                    return
            time.sleep(0.02)
        raise SystemExit("connections were left open a minute after their driver had ended")
