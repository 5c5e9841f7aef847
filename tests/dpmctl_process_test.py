#!/usr/bin/env python3
"""dpm-card and dpmctl driven as processes, as people and scripts drive them.

Each test has a shelf of its own in a fresh directory.  The programs are those of $DPM_BIN, run
through $DPM_EMULATOR where they are another machine's.
"""
import fcntl
import json
import os
import pty
import resource
import shlex
import shutil
import signal
import socket
import stat
import struct
import subprocess
import tempfile
import termios
import time
import unittest

BIN = os.environ.get("DPM_BIN", "build/i386")
EMULATOR = shlex.split(os.environ.get("DPM_EMULATOR", ""))
PATIENCE_SEC = 30
SETTINGS = """\
if add vlanif100 vlan 100
addr add 10.1.1.1/24 dev vlanif100   # the first interface
addr add fd00:100::1/64 dev vlanif100
"""


class Shelf(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="dpm-test.")
        self.cards = {}

    def tearDown(self):
        try:
            for slot, card in list(self.cards.items()):
                card.send_signal(signal.SIGTERM)
                self.assertEqual(card.wait(PATIENCE_SEC), 0, f"the card in slot {slot} ends badly: {self.log(slot)}")
        finally:
            for card in self.cards.values():
                if card.poll() is None:
                    card.kill()
                    card.wait()
            shutil.rmtree(self.dir)

    def log(self, slot):
        with open(f"{self.dir}/stderr-{slot}") as file:
            return file.read()[-4000:]

    def wait_until(self, what, predicate):
        deadline = time.monotonic() + PATIENCE_SEC
        while not predicate():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.05)

    def start_card(self, slot, *arguments):
        with open(f"{self.dir}/stderr-{slot}", "w") as errors:
            command = [*EMULATOR, f"{BIN}/dpm-card", "--slot", str(slot), "--dir", self.dir]
            self.cards[slot] = subprocess.Popen(
                [*command, "--log", f"{self.dir}/log-{slot}", *arguments], stderr=errors
            )
        self.wait_until(f"slot {slot} answers", lambda: self.run_ctl("--card", str(slot), "card", "role").returncode == 0)
        return self.cards[slot]

    def start_master(self):
        self.start_card(9)
        self.wait_until("slot 9 is master", lambda: self.role(9) == "master")

    def start_shelf(self):
        self.start_master()
        self.start_card(10)
        self.wait_until("slot 10 sees its peer", lambda: self.status(10)["peer"] == "yes")
        self.ctl(input=SETTINGS)

    def kill_card(self, slot):
        card = self.cards.pop(slot)
        card.kill()
        card.wait()

    def command(self, *arguments):
        return [*EMULATOR, f"{BIN}/dpmctl", "--dir", self.dir, *arguments]

    def run_ctl(self, *arguments, input="", **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        return subprocess.run(self.command(*arguments), input=input, text=True, timeout=120, **options)

    def ctl(self, *arguments, input=""):
        """The output of a command that must succeed and say nothing on stderr."""
        done = self.run_ctl(*arguments, input=input)
        self.assertEqual((done.returncode, done.stderr), (0, ""), (arguments, input))
        return done.stdout

    def refused(self, *arguments, input=""):
        """What stderr says of a command that must fail without output."""
        done = self.run_ctl(*arguments, input=input)
        self.assertEqual((done.returncode, done.stdout), (1, ""), (arguments, input))
        return done.stderr

    def words(self, line, card=None):
        target = ["--card", str(card)] if card else []
        return self.ctl(*target, *line.split())

    def role(self, slot):
        return self.run_ctl("--card", str(slot), "card", "role").stdout.strip()

    def status(self, slot):
        return json.loads(self.words("card status --json", slot))[0]

    def addresses(self, slot=None):
        return [host["address"] for host in json.loads(self.words("show hosts --json", slot))]

    def learn(self, ip, mac="02:00:00:00:01:02", port=3):
        self.words(f"neigh add {ip} lladdr {mac} dev vlanif100 port {port}")

    def written(self, text):
        """A file with a text."""
        path = f"{self.dir}/text"
        with open(path, "w") as file:
            file.write(text)
        return path


class Commands(Shelf):
    def test_come_from_arguments_a_file_or_a_pipe_and_are_refused_with_their_place(self):
        self.assertIn("no card runs in", self.refused("show", "hosts"))
        self.start_master()
        commands = self.written("# a comment\n\nif add vlanif100\naddr add 10.1.1.1/24 dev vlanif100\nif list\n")
        script = "card role\nbad\ncard role\n"
        nothing = "0 lines: 0 added, 0 removed, 0 skipped, 0 refused\n"
        for arguments, input, status, said, error in [
            (["-f", commands], "", 0, "vlanif100\n", ""),
            ([], "show interfaces --count\nquit\nnonsense\n", 0, "1\n", ""),
            ([], script, 1, "master\n", "stdin:2: column 1: "),  # the first error ends a script
            (["-k"], script, 1, "master\nmaster\n", "stdin:2: column 1: "),
            (["shwo"], "", 1, "", "dpmctl: column 1: unknown word 'shwo'; expected if,"),
            (["port", "down", "65"], "", 1, "", "column 11: unknown word '65'; expected a port"),
            (["\x1b[31mred\x9b"], "", 1, "", r"unknown word '\x1b[31mred\xc2\x9b'"),
            (["if", "del", "vlanif9"], "", 1, "", "unknown interface 'vlanif9'"),
            (["--card", "10", "show", "hosts"], "", 1, "", "slot 10 does not run"),
            (["-f", self.dir], "", 1, "", f"{self.dir}: Is a directory"),
            (["import", "file", self.dir], "", 1, nothing, f"import: {self.dir}: Is a directory"),
            (["--dir", "x" * 150, "show", "hosts"], "", 1, "", "slot 9 cannot be reached"),
            (["--dir", "x" * 150, "show", "hosts"], "", 1, "", "File name too long"),
        ]:
            done = self.run_ctl(*arguments, input=input)
            self.assertEqual((done.returncode, done.stdout), (status, said), (arguments, done.stderr))
            self.assertIn(error, done.stderr, arguments)
        with open("/dev/full", "w") as full:
            for line in ["show hosts", "help", "verify"]:
                done = self.run_ctl(*line.split(), stdout=full)
                self.assertEqual((done.returncode, done.stderr[:15]), (1, "dpmctl: stdout:"), line)

    def on_terminal(self, *arguments, rows=24, typed=b"", **environment):
        """What a command prints on a terminal of so many rows."""
        terminal, inner = pty.openpty()
        fcntl.ioctl(inner, termios.TIOCSWINSZ, struct.pack("HHHH", rows, 100, 0, 0))
        streams = {"stdin": inner, "stdout": inner, "stderr": inner}
        child = subprocess.Popen(self.command(*arguments), env={**os.environ, **environment}, **streams)
        os.close(inner)
        os.write(terminal, typed)
        said = b""
        try:
            while part := os.read(terminal, 65536):
                said += part
        except OSError:  # the other side is closed
            pass
        os.close(terminal)
        self.assertEqual(child.wait(PATIENCE_SEC), 0)
        return said.decode().replace("\r\n", "\n")

    def test_are_typed_at_a_prompt_and_answered_through_a_pager_when_the_screen_is_too_small(self):
        self.start_master()
        said = self.on_terminal(typed=b"show hosts --count\nshwo\nquit\n", HOME=self.dir)
        self.assertIn("dpm> ", said)
        self.assertRegex(said, r"(dpm> |\n)0\n")
        self.assertIn("unknown word 'shwo'", said)
        self.ctl(input=SETTINGS)
        for last in range(2, 12):
            self.learn(f"10.1.1.{last}")
        answer = self.words("show hosts")
        paged = "".join(f"paged:{line}\n" for line in answer.splitlines())
        pager = "sed s/^/paged:/"
        for rows, program, wanted in [
            (8, pager, paged),
            (24, pager, answer),
            (8, "/no/such/pager 2>/dev/null", answer),
            (8, "true", ""),  # a reader may leave early
        ]:
            self.assertEqual(self.on_terminal("show", "hosts", rows=rows, PAGER=program), wanted, program)
        self.assertEqual(self.run_ctl("show", "hosts", env={**os.environ, "PAGER": pager}).stdout, answer)

    def test_are_all_in_the_operating_page(self):
        with open(os.path.join(os.path.dirname(__file__), "..", "docs", "operating.md")) as file:
            page = file.read().replace("\\|", "|")
        commands = [line for line in self.ctl("help").splitlines() if not line.startswith(" ")]
        self.assertGreater(len(commands), 50)
        self.assertEqual([line for line in commands if f"`{line}`" not in page], [])


class TwoCards(Shelf):
    def test_hold_the_same_tables_and_verify_names_the_table_and_the_record_that_differ(self):
        self.start_shelf()
        for ip in ["10.1.1.2", "10.1.1.3", "fd00:100::2"]:
            self.learn(ip)
        said = self.ctl("verify")
        self.assertRegex(said, "slot 9 and slot 10 agree: .*hosts 3, .*nexthops 1,")
        self.assertRegex(said, "slot 9: chip and tables agree: .*entries 4, interfaces 1, next hops 1")
        self.assertEqual(self.addresses(9), self.addresses(10))
        indexes = [json.loads(self.words("show interfaces --json", slot))[0]["ifindex"] for slot in (9, 10)]
        self.assertNotEqual(*indexes)
        both = self.ctl("--card", "both", "show", "hosts", "--count")
        self.assertEqual(both.split("\n")[0].split(" | "), ["slot 9 (master)", "slot 10 (standby)"])
        for line in self.ctl("help", "show").splitlines():
            if line.startswith("show") and "--json" in line:
                self.assertIsInstance(json.loads(self.words(f"show {line.split()[1]} --json")), list, line)

        self.words("fault alloc 2", 10)  # the standby takes the next hop's new count and loses the host
        self.learn("10.1.1.4")
        said = self.run_ctl("verify")
        self.assertEqual(said.returncode, 1)
        self.assertIn("verify: hosts differs between slot 9 and slot 10", said.stderr)
        self.assertIn("verify: hosts: vrf 0 10.1.1.4 dev vlanif100: on slot 9 only", said.stderr)
        self.assertNotIn("nexthops differs", said.stderr)
        self.words("fault alloc 1", 10)  # and the next one, a route
        self.words("route add fd05::/48 via fd00:100::2 dev vlanif100")
        self.assertIn("verify: routes: vrf 0 fd05::/48: on slot 9 only", self.run_ctl("verify").stderr)

    def test_carry_on_when_the_master_is_killed(self):
        self.start_shelf()
        for last in range(2, 12):
            self.learn(f"10.1.1.{last}", f"02:00:00:00:01:{last:02x}", last)
        self.ctl("verify")
        digest = self.words("digest", 9)
        self.kill_card(9)
        self.wait_until("slot 10 is master", lambda: self.role(10) == "master")
        self.assertEqual(self.words("digest"), digest)
        self.assertIn("next hop", self.words("chip lookup 10.1.1.5"))
        self.assertEqual(self.words("show probes --count"), "10\n")
        self.assertEqual(self.words("show unreachable --count"), "10\n")
        self.assertIn("waits for the neighbour to answer", self.words("why 10.1.1.5"))
        self.learn("10.1.1.5", "02:00:00:00:01:05", 5)  # as before: it answers the probe
        self.words("neigh del 10.1.1.6 dev vlanif100")
        self.words("clock advance 30s")
        self.wait_until("the others are probed again", lambda: self.words("show probes --count") == "19\n")
        self.assertRegex(self.ctl("verify"), "slot 10: chip and tables agree: .*entries 10")
        self.start_card(9, "--config", self.written(SETTINGS))
        self.assertEqual(self.role(9), "standby", "the card that comes back does not take over")
        self.assertRegex(self.ctl("verify"), "slot 10 and slot 9 agree: .*hosts 9,")
        self.kill_card(10)
        self.wait_until("slot 9 is master", lambda: self.role(9) == "master")
        self.assertRegex(self.ctl("verify"), "slot 9: chip and tables agree: .*entries 10")

    def test_take_over_from_a_master_that_falls_silent(self):
        self.start_shelf()
        self.cards[9].send_signal(signal.SIGSTOP)
        self.wait_until("slot 10 is master", lambda: self.role(10) == "master")
        self.assertEqual(self.status(10)["peer"], "no")
        crowd = []
        with self.assertRaises(BlockingIOError):  # until its socket takes no more
            while crowd.append(socket.socket(socket.AF_UNIX)) is None:
                crowd[-1].setblocking(False)
                crowd[-1].connect(f"{self.dir}/card-9.sock")
        silent = "the card in slot 9 does not answer"
        self.assertEqual(self.refused("if", "add", "vlanif7", "vlan", "7"), f"dpmctl: {silent}\n")
        self.assertEqual(self.words("if list", 10), "vlanif100\nvlanif7\n", "the other card has taken it")
        self.assertIn(f"verify: {silent}", self.run_ctl("verify").stderr)
        for client in crowd:
            client.close()
        self.cards[9].send_signal(signal.SIGCONT)
        self.wait_until("of two masters the one that took over stays", lambda: self.role(9) == "standby")
        self.assertEqual(self.role(10), "master")


class Import(Shelf):
    LINES = """\
10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 router STALE
10.1.1.4 dev eth0 lladdr 02:00:00:00:01:04 PERMANENT
fd00:100::2 dev vlanif100 lladdr 02:00:00:00:01:02 proto kernel DELAY
10.1.1.5 dev vlanif100  INCOMPLETE
10.1.1.6 dev wlan0 lladdr 02:00:00:00:01:06 PROBE
224.0.0.1 dev vlanif100 lladdr 01:00:5e:00:00:01 NOARP
10.1.1.2 dev vlanif100  FAILED
Deleted 10.1.1.3 dev vlanif100 lladdr 02:00:00:00:01:03 STALE
not a line of ip
10.1.1.7 dev vlanif100 lladdr 02:00:00:00:01:07 used 10/5/1 probes 1 REACHABLE
default
red \x1b[31m
Deleted 10.1.1.7 dev vlanif100"""

    def test_takes_the_lines_of_ip_as_they_stand(self):
        self.start_shelf()
        done = self.run_ctl("import", "--dev-map", "eth0=vlanif100", "--port", "7", input=self.LINES)
        self.assertEqual(done.stdout, "14 lines: 5 added, 2 removed, 6 skipped, 1 refused\n")
        self.assertEqual(done.returncode, 1, "the last line was cut")
        self.assertIn("lines are skipped: unknown interface 'wlan0'", done.stderr)
        for line in ["not a line of ip\n", "default\n", "red \\x1b[31m\n"]:
            self.assertIn(f"neither neighbour nor route: {line}", done.stderr)
        self.assertIn("cut short, and left out: Deleted 10.1.1.7", done.stderr)
        self.assertEqual(self.addresses(), ["10.1.1.4", "10.1.1.7", "fd00:100::2"])
        self.assertEqual(json.loads(self.words("show hosts 10.1.1.4 --json"))[0]["port"], "7")
        self.ctl("verify")
        self.assertEqual(self.words("show nexthops --count", 10), "3\n")
        of_one = "Deleted 10.1.1.7 lladdr 02:00:00:00:01:07 STALE\n10.2.0.0/16 via 10.1.1.4\n10.3.0.0/16 scope link\n"
        cut = "10.4.0.0/16 proto bird\n\tnexthop via 10.1.1.4 weight 1\n\tnexthop via 10.1"
        done = self.run_ctl("import", "--dev", "eth0", "--dev-map", "eth0=vlanif100", input=of_one + cut)
        self.assertEqual(done.stdout, "4 lines: 2 added, 1 removed, 0 skipped, 1 refused\n", done.stderr)
        self.assertEqual(self.words("show routes --count"), "2\n")

    ROUTES = """\
default via 10.1.1.2 dev vlanif100 proto bird metric 32
10.1.1.0/24 dev vlanif100 proto kernel scope link src 10.1.1.1
10.2.0.0/16 proto bird metric 32 \\\tnexthop via 10.1.1.2 dev vlanif100 weight 1 \\\tnexthop via 10.1.1.3 dev vlanif100
10.3.0.0/16 via 10.9.1.1 dev wlan0 proto bird
unreachable 10.4.0.0/16 proto static
blackhole 10.5.0.0/16
fe80::/64 dev vlanif100 proto kernel metric 256 pref medium
default via fd00:100::2 dev vlanif100 proto bird metric 32 pref medium
fd05::/48 proto bird metric 32 pref medium
\tnexthop via fd00:100::2 dev vlanif100 weight 1\x20
\tnexthop via fd00:100::3 dev vlanif100 weight 1\x20
10.6.0.0/16 via 10.1.1.2 dev vlanif100
10.7.0.0/16 sideways 100 via 10.1.1.2 dev vlanif100
Deleted 10.6.0.0/16 via 10.1.1.2 dev vlanif100
Deleted fd05::/48 via fd00:100::3 dev vlanif100 proto bird metric 32 pref medium
10.8.0.0/16 via 10.1.1.2 dev vlanif100
blackhole 10.8.0.0/16
10.9.0.0/16 via 10.1.1.2 dev vlanif100
10.9.0.0/16 via 10.9.1.1 dev wlan0
"""

    def test_takes_routes(self):
        self.start_shelf()
        self.learn("10.1.1.2")
        self.learn("10.1.1.3", "02:00:00:00:01:03", 4)
        self.learn("fd00:100::2")
        done = self.run_ctl("import", input=self.ROUTES)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout, "17 lines: 8 added, 2 removed, 7 skipped, 0 refused\n")
        for note in ["unreachable routes", "blackhole routes", "routes of one link", "unknown interface 'wlan0'"]:
            self.assertIn(note, done.stderr)
        self.assertIn("neither neighbour nor route: 10.7.0.0/16 sideways", done.stderr)
        for prefix in ["10.8.0.0/16", "10.9.0.0/16"]:
            self.assertIn(f"{prefix} is withdrawn: what took its place is not installed", done.stderr)
        routes = {row["destination"]: row for row in json.loads(self.words("show routes --json"))}
        wanted = ["0.0.0.0/0", "10.1.1.0/24", "10.2.0.0/16", "::/0", "fd05::/48"]
        self.assertEqual(sorted(routes), sorted(wanted))
        self.assertEqual(len(routes["10.2.0.0/16"]["gateways"]), 2)
        self.assertEqual(len(routes["fd05::/48"]["gateways"]), 1, "the other one was deleted")
        self.assertEqual([routes[name]["type"] for name in wanted], [9, 2, 9, 9, 9])
        self.assertIn("port 4", self.words("chip lookup 10.2.1.1"))
        self.assertIn("routes 5", self.ctl("verify"))

    def test_applies_each_line_as_it_arrives_and_follows_the_master(self):
        self.start_shelf()
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE}
        importer = subprocess.Popen(self.command("import"), text=True, **pipes)

        def report(last):
            importer.stdin.write(f"10.1.1.{last} dev vlanif100 lladdr 02:00:00:00:01:{last:02x} REACHABLE\n")
            importer.stdin.flush()
            self.wait_until(f"10.1.1.{last} is there", lambda: self.role(10) and f"10.1.1.{last}" in self.addresses(10))

        report(2)
        self.ctl("verify")
        self.kill_card(9)
        report(3)
        said, _ = importer.communicate(timeout=PATIENCE_SEC)
        self.assertEqual((importer.returncode, said), (0, "2 lines: 2 added, 0 removed, 0 skipped, 0 refused\n"))
        self.assertEqual(self.role(10), "master")


class Sockets(Shelf):
    def connect(self, slot=9):
        client = socket.socket(socket.AF_UNIX)
        client.connect(f"{self.dir}/card-{slot}.sock")
        client.settimeout(PATIENCE_SEC)
        return client

    @staticmethod
    def read_to_end(client):
        said = b""
        try:
            while part := client.recv(65536):
                said += part
        except ConnectionResetError:
            pass
        return said

    def test_survive_clients_of_every_kind(self):
        self.start_shelf()
        self.learn("10.1.1.2")
        with self.connect() as client:  # a line that does not end
            client.sendall(b"x" * 5000)
            self.assertIn(b"the line is too long", self.read_to_end(client))
        with self.connect() as client:  # a megabyte of it: the card hangs up
            with self.assertRaises((BrokenPipeError, ConnectionResetError)):
                client.sendall(b"x" * 1_000_000)
                self.read_to_end(client)
                client.sendall(b"x")
        with self.connect() as client:  # gone in the middle of a line
            client.sendall(b"show ho")
        for _ in range(20):  # gone before the answer
            with self.connect() as client:
                client.sendall(b"show hosts\n" * 50)
        with self.connect() as client:  # bytes that are no words
            client.sendall(bytes(range(256)).replace(b"\n", b"") + b"\n\0\n")
            self.assertTrue(client.recv(10).startswith(b"1 "))
        crowd = [self.connect() for _ in range(80)]
        self.assertIn(b"too many clients", self.read_to_end(crowd[-1]))
        crowd[0].sendall(b"clock advance 60s\n")
        self.assertEqual(crowd[0].recv(10), b"0 0\n")
        self.assertEqual(self.words("card role"), "master\n", "idle clients make room")
        for client in crowd:
            client.close()
        with self.connect() as client:  # two commands in one packet, one in two
            client.sendall(b"if list\nif ")
            time.sleep(0.1)
            client.sendall(b"list\n")
            client.shutdown(socket.SHUT_WR)
            self.assertEqual(self.read_to_end(client), b"0 10\nvlanif100\n" * 2)
        self.assertEqual(self.addresses(), ["10.1.1.2"])
        self.ctl("verify")

    def test_are_shared_fairly(self):
        self.start_master()
        with self.connect() as script, self.connect() as client:
            self.cards[9].send_signal(signal.SIGSTOP)
            script.sendall(b"".join(b"if add v%d vlan %d\n" % (vlan, vlan) for vlan in range(1, 100)))
            client.sendall(b"if list\n")
            with self.connect() as impatient:
                impatient.sendall(b"if add vlanif999\n")
            self.cards[9].send_signal(signal.SIGCONT)
            self.assertLess(client.recv(1000).count(b"v"), 10, "a long script keeps nobody waiting")
            self.wait_until("the script is through", lambda: self.words("show interfaces --count") == "99\n")
        few = len(os.listdir(f"/proc/{self.cards[9].pid}/fd")) + 8
        resource.prlimit(self.cards[9].pid, resource.RLIMIT_NOFILE, (few, few))
        crowd = [self.connect() for _ in range(20)]
        self.assertIn(b"no file descriptor left", self.read_to_end(crowd[-1]))
        for client in crowd:
            client.close()

    def test_of_the_shelf_turn_strangers_away(self):
        def frame(name, payload=b""):
            return struct.pack("<IH", 2 + len(name) + len(payload), len(name)) + name + payload

        self.start_master()
        call = frame(b"dpm_slave_up_pro_over_sync_receive", b"\0\0\0\0")
        for greeting in [b"\xff" * 64, frame(b"hello"), call, frame(b"hello", bytes(16)) + call]:
            with socket.socket(socket.AF_UNIX) as stranger:
                stranger.connect(f"{self.dir}/shelf.sock")
                stranger.settimeout(PATIENCE_SEC)
                stranger.sendall(greeting)
                self.read_to_end(stranger)  # the card's own greeting
        self.assertEqual(self.status(9)["peer"], "no")
        self.start_card(10)
        self.wait_until("the real peer gets in", lambda: self.status(9)["peer"] == "yes")
        self.assertEqual(self.role(10), "standby")

    def test_are_their_owners_and_go_with_the_card(self):
        self.start_shelf()
        self.assertEqual(stat.S_IMODE(os.stat(self.dir).st_mode), 0o700)
        for name in ("card-9.sock", "card-10.sock", "shelf.sock"):
            self.assertEqual(stat.S_IMODE(os.stat(f"{self.dir}/{name}").st_mode), 0o600, name)
        self.words("card quit", 10)
        self.assertEqual(self.cards.pop(10).wait(PATIENCE_SEC), 0)
        card = self.cards.pop(9)
        card.send_signal(signal.SIGHUP)
        self.assertEqual(card.wait(PATIENCE_SEC), 0)
        self.assertEqual([name for name in os.listdir(self.dir) if "sock" in name or "line" in name or "lock" in name], [])

    def test_of_a_dead_card_are_replaced_and_of_a_living_one_are_not(self):
        self.start_master()
        self.assertIn("slot 9 runs already", self.refused_card())
        self.kill_card(9)
        self.assertTrue(os.path.exists(f"{self.dir}/card-9.sock"))
        self.start_master()

    def test_are_not_put_there_without_the_settings(self):
        self.assertIn(f"{self.dir}: Is a directory", self.refused_card("--config", self.dir))

    def test_are_not_put_where_others_can_write(self):
        os.chmod(self.dir, 0o777)
        self.assertIn("not a directory of this user's own", self.refused_card())
        os.symlink(self.dir, f"{self.dir}/link")
        self.assertIn("is a link", self.refused_card("--dir", f"{self.dir}/link"))
        self.assertIn("too long for sockets", self.refused_card("--dir", f"{self.dir}/{'x' * 90}"))

    def test_are_one_cards_of_several_that_start_in_a_slot_at_once(self):
        command = [*EMULATOR, f"{BIN}/dpm-card", "--slot", "9", "--dir", self.dir]
        with open(f"{self.dir}/stderr-9", "w") as errors:
            crowd = [subprocess.Popen(command, stderr=errors) for _ in range(4)]
        self.wait_until("three give up", lambda: sum(card.poll() == 1 for card in crowd) == 3)
        self.cards[9] = next(card for card in crowd if card.poll() is None)
        self.wait_until("one is master", lambda: self.role(9) == "master")

    def test_need_descriptors(self):
        few = lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40))
        self.assertIn("needs 80 file descriptors", self.refused_card(preexec_fn=few))

    def refused_card(self, *arguments, **options):
        command = [*EMULATOR, f"{BIN}/dpm-card", "--slot", "9", "--dir", self.dir, *arguments]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, **options)
        self.assertEqual(done.returncode, 1)
        return done.stderr


if __name__ == "__main__":
    unittest.main()
