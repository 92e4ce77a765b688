import json
import os
import re
import signal
import socket
import threading
import time

from serve_case import FAILED, LIMIT_S, ServeCase, UNKNOWN_COOKIE, USAGE, main

PAGES = ("/", "/page.js", "/page.css", "/icon.svg", "/api/state", "/api/history", "/metrics")
GUARDS = {"x-content-type-options": "nosniff", "cross-origin-resource-policy": "same-origin",
          "referrer-policy": "no-referrer", "cache-control": "no-store"}
SAMPLE = re.compile(r'^([a-zA-Z_:][a-zA-Z0-9_:]*)(?:\{((?:[a-z_]+="(?:[^"\\\n]|\\["\\n])*",?)*)\})? (\S+)$')
LABEL = re.compile(r'([a-z_]+)="((?:[^"\\\n]|\\["\\n])*)"')


def samples_of(text):
    """Parses the text form of metrics strictly: {name: (type, {labels: value})}."""
    families = {}
    name = None
    assert text.endswith("\n")
    for line in text.splitlines():
        if line.startswith("# HELP "):
            name = line.split(" ")[2]
            assert name not in families and len(line.split(" ", 3)[3]) > 5, line
            families[name] = [None, {}]
        elif line.startswith("# TYPE "):
            _, _, typed, kind = line.split(" ")
            assert typed == name and kind in ("gauge", "counter"), line
            families[name][0] = kind
        else:
            match = SAMPLE.match(line)
            assert match and match.group(1) == name and families[name][0], line
            labels = frozenset((key, re.sub(r"\\(.)", lambda m: "\n" if m.group(1) == "n" else m.group(1), value))
                               for key, value in LABEL.findall(match.group(2) or ""))
            assert labels not in families[name][1], line
            families[name][1][labels] = float(match.group(3))
    return families


class Serve(ServeCase):
    # --- starting and ending

    def test_says_where_it_listens_and_ends_at_either_signal(self):
        self.add_location()
        for by in (signal.SIGINT, signal.SIGTERM):
            server = self.serving()
            self.assertEqual(server.first, {"message": "serving", "url": f"http://127.0.0.1:{server.port}/",
                                            "address": "127.0.0.1", "port": server.port})
            self.assertEqual(server.ask("/")[0], 200)
            server.end(by)
            with self.assertRaises(ConnectionRefusedError):
                server.ask("/")

    def test_listens_on_the_loopback_alone(self):
        server = self.serving()
        self.assertEqual(self.listening_places(server.process.pid), [f"0100007F:{server.port:04X}"])

    def listening_places(self, pid):
        inodes = set()
        for name in os.listdir(f"/proc/{pid}/fd"):
            target = os.readlink(f"/proc/{pid}/fd/{name}")
            if target.startswith("socket:["):
                inodes.add(target[8:-1])
        places = []
        for table in ("tcp", "tcp6", "udp", "udp6"):
            with open(f"/proc/{pid}/net/{table}", encoding="ascii") as lines:
                for line in list(lines)[1:]:
                    words = line.split()
                    if words[9] in inodes and words[3] in ("0A", "07"):
                        places.append(words[1])
        return places

    def test_another_address_is_listened_on_with_a_warning(self):
        server = self.serving("--listen", "0.0.0.0", quiet=False)
        self.assertEqual(self.listening_places(server.process.pid), [f"00000000:{server.port:04X}"])
        self.assertEqual(server.ask("/", Host="media.example")[0], 200)
        server.end()
        self.assertIn(b"whoever reaches 0.0.0.0", server.process.stderr.read())

    def test_a_port_in_use_is_a_clear_failure(self):
        server = self.serving()
        self.refused("serve", "--port", str(server.port), expect=FAILED,
                     message=f"cannot listen on port {server.port} of 127.0.0.1: another program listens there")
        self.refused("serve", "--port", "0", "--listen", "192.0.2.1", expect=FAILED, message="cannot listen")

    def test_wrong_options_are_wrong_usage(self):
        for line in (["--port", "65536"], ["--port", "-1"], ["--port", "x"], ["--listen", "example.org"],
                     ["--listen", ""], ["--rate", "0"], ["surplus"]):
            self.refused("serve", *line, expect=USAGE)

    def test_ends_while_clients_hang_on(self):
        server = self.serving()
        clients = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(20)]
        server.ask("/")
        server.end(signal.SIGTERM)
        for client in clients:
            client.close()

    # --- state

    def test_state_is_what_the_help_says(self):
        clip = self.import_clip()
        server = self.serving()
        state = server.wait_for(lambda state: state["clips"]["total"] == 1)
        (location,) = state["locations"]
        self.assertEqual({key: location[key] for key in ("id", "name", "path", "status", "slow")},
                         {"id": "1", "name": "location", "path": self.path("location"), "status": "online", "slow": False})
        self.assertIn(location["type"], ("local", "removable", "network"))
        space = os.statvfs(self.path("location"))
        self.assertEqual(location["total_bytes"], space.f_blocks * space.f_frsize)
        self.assertLessEqual(location["free_bytes"], location["total_bytes"])
        self.assertGreater(location["minutes_left"], 0)
        self.assertEqual(state["clips"], {"total": 1, "whole": 1, "partly_offline": 0, "offline": 0,
                                          "offline_with_proxy": 0, "listed": []})
        self.assertEqual((state["recordings"], state["age_seconds"] < 30), ([], True))
        help = self.run_command("serve", "--help").text
        words = set(re.findall(r"[a-z_0-9]+", help[help.index("\nkeys: "):help.index("\nexit status: ")]))
        for part in (state, location, state["clips"]):
            self.assertLessEqual(set(part), words)
        self.assertTrue(os.path.exists(clip["file"]))

    def test_minutes_left_go_by_the_rate(self):
        point = self.memory_disk("disk", "64m")
        self.add_location("disk")
        megabyte = 1 << 20
        server = self.serving("--rate", str(megabyte // 60))  # a megabyte a minute
        location = server.location(point)
        self.assertAlmostEqual(location["minutes_left"], location["free_bytes"] / megabyte - 2, delta=2)

    def test_a_location_that_goes_is_offline_and_comes_back(self):
        self.import_clip()
        server = self.serving()
        server.wait_for_status(self.path("location"), "online")
        os.rename(self.path("location"), self.path("away"))
        state = server.wait_for(lambda state: state["clips"]["offline"] == 1)
        (location,) = state["locations"]
        self.assertEqual((location["status"], location["free_bytes"], location["minutes_left"], location["name"]),
                         ("offline", None, None, "location"))
        os.rename(self.path("away"), self.path("location"))
        server.wait_for_status(self.path("location"), "online")
        server.wait_for(lambda state: state["clips"]["whole"] == 1)
        server.end()

    def test_an_unplugged_disk_is_offline_and_tells_what_to_connect(self):
        point = self.memory_disk("disk")
        self.add_location("disk", "--name", "Raid A")
        clip = self.import_file(self.media_file())
        server = self.serving()
        self.assertEqual(os.system(f"umount {point}"), 0)
        state = server.wait_for(lambda state: state["clips"]["listed"] and state["locations"][0]["status"] == "offline")
        (offline,) = state["clips"]["listed"]
        self.assertEqual((offline["cookie"], offline["offline"], offline["connect"]),
                         (clip["cookie"], "all", [{"location": "1", "name": "Raid A", "folder": point + "/Material/"}]))

    def test_a_listed_place_that_was_never_reached_is_shown_and_taken_up(self):
        self.add_location("a")
        self.add_location("b")
        os.rename(self.path("b"), self.path("away"))
        server = self.serving()
        missing = server.location(self.path("b"))
        self.assertEqual((missing["id"], missing["name"], missing["status"], missing["type"]), (None, "b", "offline", None))
        os.rename(self.path("away"), self.path("b"))
        server.wait_for_status(self.path("b"), "online")

    def test_locations_come_and_go_with_the_project_space(self):
        self.add_location("a")
        server = self.serving()
        self.add_location("b")
        server.wait_for_status(self.path("b"), "online")
        self.run_command("location", "rename", "1", "Raid B")
        self.run_command("location", "remove", self.path("b"))
        server.wait_for(lambda state: [l["name"] for l in state["locations"]] == ["Raid B"])

    def test_a_recording_grows_and_rests(self):
        self.add_location()
        name = self.path("location/Material", UNKNOWN_COOKIE + ".mov.partial")
        server = self.serving()
        with open(name, "wb", buffering=0) as file:
            def is_growing(state):
                file.write(b"x" * 50_000)
                return state["recordings"] and state["recordings"][0]["growing"] and state["recordings"][0]["rate"] > 0
            (recording,) = server.wait_for(is_growing)["recordings"]
        self.assertEqual((recording["file"], recording["cookie"], recording["location"]), (name, UNKNOWN_COOKIE, "1"))
        self.assertGreaterEqual(os.path.getsize(name), recording["bytes"])
        state = server.wait_for(lambda state: not state["recordings"][0]["growing"])
        self.assertEqual((state["recordings"][0]["bytes"], state["recordings"][0]["rate"]), (os.path.getsize(name), 0))
        os.rename(name, name.removesuffix(".partial"))
        server.wait_for(lambda state: state["recordings"] == [] and state["clips"]["total"] == 1)

    def test_a_recorder_is_not_disturbed(self):
        self.add_location()
        server = self.serving()
        for _ in range(3):
            self.run_command("record", "--location", "1", "--fps", "25", "--frame-bytes", "40k", "--seconds", "1", "--verify")
        server.wait_for(lambda state: state["clips"]["total"] == 3)

    def test_what_is_written_shows_in_the_history(self):
        point = self.memory_disk("disk")
        self.add_location("disk")
        server = self.serving()
        self.write("disk/ballast", b"x" * 8_000_000)

        def seen(_):
            (known,) = json.loads(server.ask("/api/history")[2])["locations"]
            self.assertEqual(known["path"], point)
            self.assertEqual({len(known[key]) for key in ("time", "read_rate", "write_rate", "free_bytes")}, {len(known["time"])})
            self.assertEqual(known["time"], sorted(known["time"]))
            return max((rate or 0) for rate in known["write_rate"]) > 1_000_000
        server.wait_for(seen)

    def test_changes_nothing_on_the_disk(self):
        self.import_clip()
        self.write("location/Material/" + UNKNOWN_COOKIE + ".mov.partial", b"x" * 5000)
        before = self.everything_below()
        server = self.serving()
        for page in PAGES:
            server.ask(page)
        server.wait_for(lambda state: state["recordings"] and state["clips"]["total"] == 1)
        server.end()
        self.assertEqual(self.everything_below(), before)

    def everything_below(self):
        found = {}
        for folder in (self.space, self.path("location")):
            for base, folders, files in os.walk(folder):
                for name in files + folders:
                    status = os.lstat(os.path.join(base, name))
                    found[os.path.join(base, name)] = (status.st_ino, status.st_size, status.st_mode, status.st_mtime_ns)
        return found

    # --- metrics

    def test_metrics_parse_and_agree_with_the_state(self):
        self.add_location("a", "--name", 'we"ird\\ <name>\xe9')
        self.import_file(self.media_file())
        self.write("a/Material/" + UNKNOWN_COOKIE + ".mov.partial", b"x" * 5000)
        server = self.serving()
        (location,) = server.wait_for(lambda state: state["recordings"])["locations"]
        status, fields, body = server.ask("/metrics")
        self.assertEqual((status, fields["content-type"]), (200, "text/plain; version=0.0.4; charset=utf-8"))
        families = samples_of(body.decode("utf-8"))
        labels = frozenset({"location": "1", "name": location["name"], "path": location["path"]}.items())
        self.assertEqual(location["name"], 'we"ird\\ <name>\xe9')
        self.assertEqual(families["fsys_location_online"], ["gauge", {labels: 1}])
        self.assertEqual(families["fsys_location_size_bytes"], ["gauge", {labels: location["total_bytes"]}])
        self.assertEqual(families["fsys_clips"][1][frozenset({("media", "whole")})], 1)
        self.assertEqual(list(families["fsys_recording_bytes"][1].values()), [5000])
        self.assertEqual(families["fsys_http_requests_total"][0], "counter")
        for name, (kind, _) in families.items():
            self.assertEqual(kind == "counter", name.endswith("_total"), name)

    def test_a_name_of_stray_bytes_is_text_all_the_same(self):
        folder = os.fsencode(self.path("a")) + b"\xff\x01"
        os.mkdir(folder)
        self.run_command("location", "add", os.fsdecode(folder))
        server = self.serving()
        (location,) = server.state()["locations"]
        self.assertEqual(location["path"], self.path("a") + "\ufffd\x01")
        samples_of(server.ask("/metrics")[2].decode("utf-8"))

    # --- strangers

    def test_only_get_and_head_are_answered(self):
        server = self.serving()
        for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT", "PROPFIND", "get", "FOO"):
            for path in ("/", "/api/state", "/nothing"):
                status, fields, _ = server.ask(path, method, body=b"x" * 10_000)
                self.assertEqual((method, status, fields["allow"]), (method, 405, "GET, HEAD"))
        for page in PAGES:
            status, fields, body = server.ask(page, "HEAD")
            self.assertEqual((status, body), (200, b""))
            self.assertGreater(int(fields["content-length"]), 10)

    def test_every_answer_forbids_what_it_does_not_need(self):
        server = self.serving()
        for method, page in [("GET", page) for page in PAGES] + [("GET", "/nothing"), ("POST", "/")]:
            _, fields, _ = server.ask(page, method)
            self.assertEqual({name: fields.get(name) for name in GUARDS}, GUARDS, page)
            policy = fields["content-security-policy"]
            self.assertIn("default-src 'none'", policy)
            self.assertNotIn("unsafe", policy)
            self.assertEqual([name for name in fields if name.startswith("access-control")], [])

    def test_the_page_has_no_script_or_style_of_its_own_text(self):
        body = self.serving().ask("/")[2].decode()
        self.assertNotRegex(body, r"<script(?![^>]* src=)|<style|\son\w+=|\sstyle=|javascript:")

    def test_requests_for_other_hosts_are_refused(self):
        server = self.serving()
        for host in ("evil.example", f"evil.example:{server.port}", "localhost.evil.example", "127.0.0.1.evil.example",
                     "10.0.0.1", "[2001:db8::1]", "::1]", "127.0.0.1@evil.example"):
            self.assertEqual((host, server.ask("/api/state", Host=host)[0]), (host, 421))
        for host in ("localhost", f"localhost:{server.port}", "127.0.0.1", "127.9.9.9:1", "[::1]", f"[::1]:{server.port}"):
            self.assertEqual((host, server.ask("/api/state", Host=host)[0]), (host, 200))
        for head in (b"", b"Host:\r\n", b"Host: localhost\r\nhost: evil.example\r\n", b"Host: a b\r\n"):
            self.assertEqual(server.status_of(b"GET / HTTP/1.1\r\n" + head + b"\r\n"), 400, head)

    def test_no_path_leads_to_a_file(self):
        server = self.serving()
        for path in ("/../../../../etc/passwd", "//etc/passwd", "/etc/passwd", "/./page.js", "/page.js/", "/web/page.js",
                     "/%2e%2e/%2e%2e/etc/passwd", "/page.js%00", "/..\\..\\etc\\passwd", "/api", "/API/STATE",
                     "/api/state/../../etc/passwd", "*", "http://localhost/", "/" + "a" * 1000, "/pageXjs"):
            answer = server.raw(b"GET " + path.encode() + b" HTTP/1.1\r\nHost: localhost\r\n\r\n")
            self.assertIn(int(answer.split(b" ", 2)[1]), (400, 404), path)
            self.assertNotIn(b"root:", answer)
        self.assertEqual(server.ask("/api/state?anything=%2e%2e&x")[0], 200)
        self.assertEqual(server.status_of(b"GET /" + b"a" * 5000 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n"), 414)

    def test_requests_that_are_none_are_refused(self):
        server = self.serving()
        for text in (b"\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/2.0\r\n\r\n", b"GET  HTTP/1.1\r\nHost: localhost\r\n\r\n",
                     b"GET / HTTP/1.1 \r\nHost: localhost\r\n\r\n", b"GET /\x00 HTTP/1.1\r\nHost: localhost\r\n\r\n",
                     b"GET /\xff HTTP/1.1\r\nHost: localhost\r\n\r\n", b"\x16\x03\x01\x02\x00\r\n\r\n"):
            self.assertIn(server.status_of(text), (400, 405), text)
        self.assertEqual(server.ask("/")[0], 200)

    def test_huge_requests_are_cut_off(self):
        server = self.serving()
        start = b"GET / HTTP/1.1\r\nHost: localhost\r\n"
        for text in (start + b"X: " + b"a" * 3_000_000, start + b"".join(b"X%d: a\r\n" % i for i in range(200_000)),
                     b"G" * 3_000_000):
            self.assertIn(server.status_of(text), (431, None))
        self.assertEqual(server.status_of(start + b"X: " + b"a" * 20_000 + b"\r\n\r\n"), 431)
        self.assertEqual(server.status_of(start + b"X: " + b"a" * 10_000 + b"\r\n\r\n"), 200)

    def test_fields_that_multiply_an_answer_do_nothing(self):
        server = self.serving()
        size = len(server.ask("/page.js")[2])
        for fields in ({"Range": "bytes=" + ",".join(["0-"] * 1000)}, {"Range": "bytes=0-1"}, {"Accept-Encoding": "gzip, br"},
                       {"Expect": "100-continue"}, {"Transfer-Encoding": "chunked"}, {"Connection": "keep-alive"}):
            status, answered, body = server.ask("/page.js", **fields)
            self.assertEqual((status, len(body), "content-encoding" in answered), (200, size, False), fields)

    def test_a_slow_client_is_left_and_holds_up_nobody(self):
        server = self.serving()
        with socket.create_connection(("127.0.0.1", server.port), timeout=LIMIT_S) as slow:
            slow.settimeout(0.2)
            end = time.monotonic() + LIMIT_S
            left = False
            while not left:
                self.assertLess(time.monotonic(), end, "the slow client is still served")
                self.assertEqual(server.ask("/api/state")[0], 200)
                try:
                    slow.sendall(b"G")
                    left = slow.recv(1) == b""
                except TimeoutError:
                    pass
                except (ConnectionResetError, BrokenPipeError):
                    left = True

    def test_a_client_that_does_not_read_is_left(self):
        server = self.serving()
        start = b"GET /page.js HTTP/1.1\r\nHost: localhost\r\n\r\n"
        clients = []
        for _ in range(12):
            client = socket.socket()
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
            client.connect(("127.0.0.1", server.port))
            client.sendall(start)
            clients.append(client)
        server.wait_for(lambda state: True)
        for client in clients:
            client.close()
        server.end()

    def test_many_connections_cost_little_and_end(self):
        server = self.serving()
        clients = []
        end = time.monotonic() + LIMIT_S
        # More at once than threads and places to wait, however slow this machine is.
        while not any(self.was_turned_away(client) for client in clients):
            self.assertLess(time.monotonic(), end, "nobody is turned away")
            clients += [socket.create_connection(("127.0.0.1", server.port), timeout=LIMIT_S) for _ in range(100)]
        self.assertLess(len(os.listdir(f"/proc/{server.process.pid}/fd")), 120)
        self.assertLess(len(os.listdir(f"/proc/{server.process.pid}/task")), 60)
        while server.ask("/")[0] != 200:
            self.assertLess(time.monotonic(), end)
        for client in clients:
            client.close()

    @staticmethod
    def was_turned_away(client):
        try:
            return client.recv(12, socket.MSG_PEEK | socket.MSG_DONTWAIT) == b"HTTP/1.1 503"
        except BlockingIOError:
            return False

    def test_many_at_once_are_answered(self):
        server = self.serving()
        wrong = []

        def client():
            for _ in range(25):
                status, _, body = server.ask("/api/state")
                if status != 200 or "locations" not in json.loads(body):
                    wrong.append((status, body))
        threads = [threading.Thread(target=client) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])


if __name__ == "__main__":
    main()
