"""A server on loopback with faults, one a path, for the tests of the command line.

faulty.py FILE prints its address. FILE is what it serves:

/film, /    with ranges
/away...    with ranges; the first connection ends after 2,500,000 bytes, then 503, 503, 429, 408,
            and then all is well
/gone...    the first connection ends after 2,500,000 bytes, then 404
/replaced   the same, then 503, then other bytes and one more
/chunked    in chunks, without a length
/endless    the same again and again: more than any buffer and socket holds
/stalls     100,000 bytes of it, and then nothing more
/headers    the headers of the request
/STATUS     that status
"""

import http.server
import itertools
import socketserver
import sys
import threading

CUT = 2500000
LATE = (503, 503, 429, 408)


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'
    content = b''
    lock = threading.Lock()
    counts = {}

    def log_message(self, *unused):
        pass

    def refuse(self, status):
        self.send_response(status)
        self.send_header('Content-Length', '6')
        self.send_header('Connection', 'close')
        self.end_headers()
        self.wfile.write(b'sorry\n')

    def ranges(self, content, cut=None):
        begin, status = 0, 200
        wanted = self.headers.get('Range', '')
        if wanted.startswith('bytes='):
            begin, status = int(wanted[6:].split('-')[0]), 206
        self.send_response(status)
        self.send_header('Content-Type', 'video/mp4')
        self.send_header('Accept-Ranges', 'bytes')
        self.send_header('Content-Length', str(len(content) - begin))
        if status == 206:
            self.send_header('Content-Range', f'bytes {begin}-{len(content) - 1}/{len(content)}')
        self.send_header('Connection', 'close')
        self.end_headers()
        self.close_connection = True
        self.wfile.write(content[begin:cut])

    def chunked(self, times):
        self.send_response(200)
        self.send_header('Content-Type', 'video/mp4')
        self.send_header('Transfer-Encoding', 'chunked')
        self.end_headers()
        for _ in times:
            for at in range(0, len(self.content), 50000):
                piece = self.content[at:at + 50000]
                self.wfile.write(b'%x\r\n%s\r\n' % (len(piece), piece))
        self.wfile.write(b'0\r\n\r\n')

    def later(self, path, number):
        if path.startswith('/gone'):
            self.refuse(404)
        elif path == '/replaced':
            self.refuse(503) if number == 1 else self.ranges(b'!' * (len(self.content) + 1))
        elif number <= len(LATE):
            self.refuse(LATE[number - 1])
        else:
            self.ranges(self.content)

    def do_GET(self):
        path = self.path
        with self.lock:
            number = self.counts.get(path, 0)
            self.counts[path] = number + 1
        try:
            if path in ('/', '/film'):
                self.ranges(self.content)
            elif path in ('/chunked', '/endless'):
                self.chunked(range(1) if path == '/chunked' else itertools.count())
            elif path == '/headers':
                self.ranges(bytes(self.headers))
            elif path == '/stalls':
                self.ranges(self.content, 100000)
                self.wfile.flush()
                threading.Event().wait()
            elif path.startswith(('/away', '/gone', '/replaced')):
                if number == 0:
                    self.ranges(self.content, CUT)
                else:
                    self.later(path, number)
            else:
                self.refuse(int(path[1:]))
        except OSError:
            self.close_connection = True


Handler.content = open(sys.argv[1], 'rb').read()
server = Server(('127.0.0.1', 0), Handler)
print(f'http://127.0.0.1:{server.server_port}', flush=True)
server.serve_forever()
