#!/usr/bin/env python3
"""dpm-card and dpmctl driven as processes: what one process alone cannot show.

Each test has a shelf of its own in a fresh directory.  The programs are those of $DPM_BIN, run
through $DPM_EMULATOR where they are another machine's.
"""
import fcntl
import json
import os
import pathlib
import pty
import re
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


def end(process):
    process.kill()
    process.wait()


def read_all(read):
    said = b""
    try:
        while part := read(65536):
            said += part
    except OSError:  # the other side is closed
        pass
    return said


class Shelf(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="dpm-test.")
        self.addCleanup(shutil.rmtree, self.dir)
        self.cards = {}

    def tearDown(self):
        for slot, card in self.cards.items():
            card.send_signal(signal.SIGTERM)
            self.assertEqual(card.wait(PATIENCE_SEC), 0, f"the card in slot {slot} ends badly")

    def program(self, name, *arguments):
        return [*EMULATOR, f"{BIN}/{name}", "--dir", self.dir, *arguments]

    def run_ctl(self, command, input="", **options):
        pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        command = self.program("dpmctl", *shlex.split(command))
        return subprocess.run(command, input=input, text=True, timeout=120, **{**pipes, **options})

    def ctl(self, command, card=None, status=0, errors=(), **options):
        """The output of a command, which ends with this status and says this on stderr."""
        done = self.run_ctl(f"--card {card} {command}" if card else command, **options)
        self.assertEqual(done.returncode, status, (command, done.stderr))
        for error in errors:
            self.assertIn(error, done.stderr, command)
        if not errors:
            self.assertEqual(done.stderr, "", command)
        return done.stdout

    def rows(self, command, card=None):
        return json.loads(self.ctl(command + " --json", card))

    def learn(self, ip, last=2, port=3):
        self.ctl(f"neigh add {ip} lladdr 02:00:00:00:01:{last:02x} dev vlanif100 port {port}")

    def wait_until(self, what, predicate):
        deadline = time.monotonic() + PATIENCE_SEC
        while not predicate():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.05)

    def wait_for(self, slot, role):
        said = lambda: self.run_ctl(f"--card {slot} card role").stdout
        self.wait_until(f"slot {slot} is {role}", lambda: said() == role + "\n")

    def wait_for_peer(self, slot):
        peer = lambda: self.rows("card status", slot)[0]["peer"]
        self.wait_until(f"slot {slot} sees its peer", lambda: peer() == "yes")

    def start_card(self, slot, role, *arguments, **options):
        log = f"{self.dir}/log-{slot}"
        command = self.program("dpm-card", "--slot", str(slot), "--log", log, *arguments)
        self.cards[slot] = subprocess.Popen(command, **options)
        self.addCleanup(end, self.cards[slot])
        self.wait_for(slot, role)

    def start_shelf(self, **options):
        self.start_card(9, "master", **options)
        self.start_card(10, "standby")
        self.wait_for_peer(10)
        self.ctl("", input=SETTINGS)

    def kill_master(self, slot):
        end(self.cards.pop(slot))
        self.wait_for(19 - slot, "master")

    def connect(self, name="card-9.sock", patience_sec=PATIENCE_SEC):
        client = socket.socket(socket.AF_UNIX)
        self.addCleanup(client.close)
        client.setblocking(patience_sec > 0)
        client.connect(f"{self.dir}/{name}")
        client.settimeout(patience_sec)
        return client

    def written(self, text):
        """A file with a text."""
        with open(f"{self.dir}/text", "w") as file:
            file.write(text)
        return file.name


class Commands(Shelf):
    def test_come_from_arguments_a_file_or_a_pipe_and_are_refused_with_their_place(self):
        self.ctl("show hosts", status=1, errors=["no card runs in"])
        self.start_card(9, "master")
        commands = self.written("# a comment\n\nif add vlanif100\nif list\n")
        script = "card role\nbad\ncard role\n"
        for command, input, status, said, *errors in [
            (f"-f {commands}", "", 0, "vlanif100\n"),
            ("", "show interfaces --count\nquit\nnonsense\n", 0, "1\n"),
            ("", script, 1, "master\n", "stdin:2: column 1: "),  # the first error ends a script
            ("-k", script, 1, "master\nmaster\n", "stdin:2: column 1: "),
            ("\x1b[31mred\x9b", "", 1, "", r"column 1: unknown word '\x1b[31mred\xc2\x9b'"),
            ("if del vlanif9", "", 1, "", "unknown interface 'vlanif9'"),
            ("--card 10 show hosts", "", 1, "", "slot 10 does not run"),
            ("rx 3 hosts.pcap", "", 1, "", "this build knows no captures"),
            (f"-f {self.dir}", "", 1, "", f"{self.dir}: Is a directory"),
            (f"--dir {'x' * 150} show hosts", "", 1, "", "slot 9 cannot be reached", "too long"),
        ]:
            self.assertEqual(self.ctl(command, input=input, status=status, errors=errors), said)
        with open("/dev/full", "w") as full:
            for command in ["show hosts", "help", "verify"]:
                self.ctl(command, stdout=full, status=1, errors=["dpmctl: stdout:"])

    def on_terminal(self, command, rows=24, typed=b"", **environment):
        """What a command prints on a terminal of so many rows."""
        terminal, inner = pty.openpty()
        fcntl.ioctl(inner, termios.TIOCSWINSZ, struct.pack("HHHH", rows, 100, 0, 0))
        streams = {"stdin": inner, "stdout": inner, "stderr": inner}
        command = self.program("dpmctl", *command.split())
        child = subprocess.Popen(command, env={**os.environ, **environment}, **streams)
        os.close(inner)
        os.write(terminal, typed)
        said = read_all(lambda size: os.read(terminal, size))
        os.close(terminal)
        self.assertEqual(child.wait(PATIENCE_SEC), 0)
        return said.decode().replace("\r\n", "\n")

    def test_are_typed_at_a_prompt_and_answered_through_a_pager_when_the_screen_is_too_small(self):
        self.start_card(9, "master")
        said = self.on_terminal("", typed=b"show hosts --count\nshwo\nquit\n", HOME=self.dir)
        self.assertRegex(said, r"(?s)dpm> .*0\n.*unknown word 'shwo'")
        self.ctl("", input="".join(f"if add v{vlan} vlan {vlan}\n" for vlan in range(1, 11)))
        answer = self.ctl("show interfaces")
        paged = "".join(f"paged:{line}\n" for line in answer.splitlines())
        pager = "sed s/^/paged:/"
        for rows, program, wanted in [
            (8, pager, paged),
            (24, pager, answer),
            (8, "/no/such/pager 2>/dev/null", answer),
            (8, "true", ""),  # a reader may leave early
        ]:
            self.assertEqual(self.on_terminal("show interfaces", rows, PAGER=program), wanted)
        self.assertEqual(self.ctl("show interfaces", env={**os.environ, "PAGER": pager}), answer)

    def test_are_all_in_the_operating_page(self):
        root = pathlib.Path(__file__).parent.parent
        page = (root / "docs/operating.md").read_text().replace("\\|", "|")
        commands = [line for line in self.ctl("help").splitlines() if not line.startswith(" ")]
        objects = re.findall(r' name = "(.*)"', (root / "chassis/chip/kinds.h").read_text())
        requests = re.search(r"\((.*)\)", self.ctl("help chip refuse"))[1].split(", ")
        for texts, at_least, head in [(commands, 51, ""), (objects, 16, "chip show"), (requests, 38, "chip refuse")]:
            lines = "".join(line for line in page.splitlines() if line.startswith(f"| `{head}") or not head)
            self.assertGreaterEqual(len(texts), at_least)
            self.assertEqual([text for text in texts if f"`{text}`" not in lines], [])


class TwoCards(Shelf):
    def test_hold_the_same_tables_and_verify_names_the_table_and_the_record_that_differ(self):
        self.start_shelf()
        for ip in ["10.1.1.2", "10.1.1.3", "fd00:100::2"]:
            self.learn(ip)
        report = "0" * 24 + "080045" + "0" * 16 + "02" + "0" * 20 + "16000000e0010101"
        self.ctl("", input="mcast snoop on\nmroute add any 224.1.1.1 vlanif100 vlanif100\n"
                           f"rx 7 hex {report} vlan 100\n")
        self.assertIn("port 7 vlan 100", self.ctl("chip lookup 224.1.1.1 from 10.9.9.9"))
        self.assertRegex(
            self.ctl("verify"),
            "slot 9 and slot 10 agree: .*hosts 3, .*mroute-members 1, .*nexthops 1,.*\n"
            "slot 9: chip and tables agree: .*entries 4, interfaces 1, mcast groups 1, mcast members 1, .*next hops 1",
        )
        indexes = [self.rows("show interfaces", slot)[0]["ifindex"] for slot in (9, 10)]
        self.assertNotEqual(*indexes)
        both = self.ctl("show hosts --count", "both").split("\n")[0]
        self.assertEqual(both.split(" | "), ["slot 9 (master)", "slot 10 (standby)"])
        for line in self.ctl("help show").splitlines():
            if line.startswith("show") and "--json" in line:
                self.assertIsInstance(self.rows("show " + line.split()[1]), list, line)

        self.ctl("fault alloc 2", 10)  # the standby takes the next hop's count and loses the host
        self.learn("10.1.1.4")
        said = self.run_ctl("verify").stderr  # and the next hops agree
        self.assertEqual(said, "verify: hosts differs between slot 9 and slot 10\n"
                               "verify: hosts: vrf 0 10.1.1.4 dev vlanif100: on slot 9 only\n")
        self.ctl("fault alloc 1", 10)  # and the next one, a route
        self.ctl("route add fd05::/48 via fd00:100::2 dev vlanif100")
        self.ctl("verify", status=1, errors=["verify: routes: vrf 0 fd05::/48: on slot 9 only"])

    def test_carry_on_when_the_master_is_killed(self):
        self.start_shelf()
        for last in range(2, 12):
            self.learn(f"10.1.1.{last}", last, last)
        self.ctl("verify")
        digest = self.ctl("digest", 9)
        self.kill_master(9)
        for command, said in [
            ("digest", digest),
            ("chip lookup 10.1.1.5", "10.1.1.5: vrf 0 10.1.1.5/32 -> next hop "),
            ("show probes --count", "10\n"),
            ("show unreachable --count", "10\n"),
        ]:
            self.assertEqual(self.ctl(command)[: len(said)], said)
        self.learn("10.1.1.5", 5, 5)  # as before: it answers the probe
        self.ctl("neigh del 10.1.1.6 dev vlanif100")
        self.ctl("clock advance 30s")
        probes = lambda: self.ctl("show probes --count")
        self.wait_until("the others are probed again", lambda: probes() == "19\n")
        self.assertRegex(self.ctl("verify"), "slot 10: chip and tables agree: .*entries 10")
        # The card that comes back does not take over.
        self.start_card(9, "standby", "--config", self.written(self.ctl("config")))
        self.assertRegex(self.ctl("verify"), "slot 10 and slot 9 agree: .*hosts 9,")
        self.kill_master(10)
        self.assertRegex(self.ctl("verify"), "slot 9: chip and tables agree: .*entries 10")

    def test_write_what_the_line_cards_hold_anew_once_there_is_room(self):
        told, file = open(f"{self.dir}/told", "w+"), f"{self.dir}/line-cards"
        self.addCleanup(told.close)
        self.start_shelf(stderr=told)
        room = os.path.getsize(file) + 20  # for a part of a record
        for i, limit in enumerate([room, room, resource.RLIM_INFINITY]):
            limits = (limit, resource.RLIM_INFINITY)
            resource.prlimit(self.cards[9].pid, resource.RLIMIT_FSIZE, limits)
            self.learn(f"10.1.1.{2 + i}")
            self.learn(f"10.1.1.{12 + i}")
            self.ctl("settle")
            self.ctl("clock advance 1s")  # till then it is not tried again
        said = lambda: pathlib.Path(told.name).read_text()
        wanted = [f"dpm-card: {file} {what}\n" for what in
                  ("cannot be written: No space left on device", "is whole again")]
        self.wait_until("it says so once", lambda: said() == "".join(wanted))
        self.kill_master(9)
        self.assertEqual(self.rows("card status")[0]["mended"], 0)
        self.ctl("verify")

    def test_take_over_from_a_master_that_falls_silent(self):
        self.start_shelf()
        late = self.connect()
        self.cards[9].send_signal(signal.SIGSTOP)
        late.sendall(b"settle\n")
        self.wait_for(10, "master")
        self.assertEqual(self.rows("card status", 10)[0]["peer"], "no")
        crowd = []
        with self.assertRaises(BlockingIOError):  # until its socket takes no more
            while True:
                crowd.append(self.connect(patience_sec=0))
        silent = ["the card in slot 9 does not answer"]
        self.ctl("if add vlanif7 vlan 7", status=1, errors=silent)
        self.assertEqual(self.ctl("if list", 10), "vlanif100\nvlanif7\n", "the other has taken it")
        self.ctl("verify", status=1, errors=silent)
        for client in crowd:
            client.close()
        self.cards[9].send_signal(signal.SIGCONT)
        with late:
            self.assertIn(b"no longer master", late.recv(1000))
        self.wait_for(9, "standby")  # of two masters the one that took over stays
        self.wait_for(10, "master")


class Import(Shelf):
    LINES = """\
10.1.1.2 dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE
10.1.1.4 dev eth0 lladdr 02:00:00:00:01:04 PERMANENT
10.1.1.5 dev vlanif100  INCOMPLETE
10.1.1.6 dev wlan0 lladdr 02:00:00:00:01:06 PROBE
10.1.1.2 dev vlanif100  FAILED
red \x1b[31m
10.2.0.0/16 proto bird \\\tnexthop via 10.1.1.2 dev vlanif100 \\\tnexthop via 10.1.1.4 dev eth0
unreachable 10.4.0.0/16 proto static
fe80::/64 dev vlanif100 proto kernel metric 256 pref medium
fd05::/48 proto bird metric 32 pref medium
\tnexthop via fd00:100::2 dev vlanif100 weight 1\x20
\tnexthop via fd00:100::3 dev vlanif100 weight 1\x20
Deleted fd05::/48 via fd00:100::3 dev vlanif100 proto bird metric 32 pref medium
10.8.0.0/16 via 10.1.1.2 dev vlanif100
blackhole 10.8.0.0/16
10.9.0.0/16 via 10.1.1.2 dev vlanif100
10.9.0.0/16 via 10.9.1.1 dev wlan0
Deleted 10.1.1.4 dev vlanif100"""

    # What is cut off may change what a line says.
    CUT = """\
Deleted 10.1.1.4 lladdr 02:00:00:00:01:04 STALE
10.3.0.0/16 scope link
10.4.0.0/16 proto bird
\tnexthop via 10.1.1.4 weight 1
\tnexthop via 10.1"""

    def test_takes_the_lines_of_ip_as_they_stand(self):
        self.start_shelf()
        withdrawn = "is withdrawn: what took its place is not installed"
        for options, input, counts, hosts, *errors in [
            (f"file {self.dir}", "", "0 lines: 0 added, 0 removed, 0 skipped, 0 refused", [],
             f"import: {self.dir}: Is a directory"),
            ("--dev-map eth0=vlanif100 --port 7", self.LINES,
             "16 lines: 6 added, 2 removed, 7 skipped, 1 refused", [("10.1.1.4", "7")],
             "lines are skipped: unknown interface 'wlan0'",
             "neither neighbour nor route: red \\x1b[31m\n",
             "unreachable routes", "blackhole routes", "routes of one link",
             f"10.8.0.0/16 {withdrawn}", f"10.9.0.0/16 {withdrawn}",
             "cut short, and left out: Deleted 10.1.1.4"),
            ("--dev eth0 --dev-map eth0=vlanif100", self.CUT,
             "3 lines: 1 added, 1 removed, 0 skipped, 1 refused", [], "cut short"),
        ]:
            said = self.ctl("import " + options, input=input, status=1, errors=errors)
            self.assertEqual(said, counts + "\n")
            there = lambda: [(host["address"], host["port"]) for host in self.rows("show hosts", 10)]
            self.wait_until(f"the standby has {hosts}", lambda: there() == hosts)
        routes = {row["destination"]: row for row in self.rows("show routes")}
        told = {name: (row["type"], len(row["gateways"])) for name, row in routes.items()}
        wanted = {"10.2.0.0/16": (9, 2), "10.3.0.0/16": (3, 1), "fd05::/48": (9, 1)}
        self.assertEqual(told, wanted)
        self.ctl("verify")

    def test_applies_each_line_as_it_arrives_and_follows_the_master(self):
        self.start_shelf()
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE}
        importer = subprocess.Popen(self.program("dpmctl", "import"), text=True, **pipes)

        def report(ip):
            importer.stdin.write(f"{ip} dev vlanif100 lladdr 02:00:00:00:01:02 REACHABLE\n")
            importer.stdin.flush()
            self.wait_until(f"{ip} is there", lambda: ip in self.ctl("show hosts", 10))

        report("10.1.1.2")
        self.ctl("verify")
        end(self.cards.pop(9))
        report("10.1.1.3")
        said, _ = importer.communicate(timeout=PATIENCE_SEC)
        self.assertEqual(said, "2 lines: 2 added, 0 removed, 0 skipped, 0 refused\n")
        self.assertEqual(importer.returncode, 0)


class Sockets(Shelf):
    def test_survive_clients_of_every_kind(self):
        self.start_shelf()
        self.learn("10.1.1.2")
        with self.connect() as client:  # a line that does not end
            client.sendall(b"x" * 140_000)
            self.assertIn(b"the line is too long", read_all(client.recv))
        with self.connect() as client:  # a megabyte of it: the card hangs up
            with self.assertRaises((BrokenPipeError, ConnectionResetError)):
                client.sendall(b"x" * 1_000_000)
                read_all(client.recv)
                client.sendall(b"x")
        for part in [b"show ho"] + [b"show hosts\n" * 50] * 20:  # gone too soon
            with self.connect() as client:
                client.sendall(part)
        with self.connect() as client:  # bytes that are no words
            client.sendall(bytes(range(256)).replace(b"\n", b"") + b"\n\0\n")
            self.assertTrue(client.recv(10).startswith(b"1 "))
        crowd = [self.connect() for _ in range(80)]
        self.assertIn(b"too many clients", read_all(crowd[-1].recv))
        crowd[0].sendall(b"clock advance 60s\n")
        self.assertEqual(crowd[0].recv(10), b"0 0\n")
        self.assertEqual(self.ctl("card role"), "master\n", "idle clients make room")
        for client in crowd:
            client.close()
        with self.connect() as client:  # two commands in one packet, one in two
            client.sendall(b"if list\nif ")
            time.sleep(0.1)
            client.sendall(b"list\n")
            client.shutdown(socket.SHUT_WR)
            self.assertEqual(read_all(client.recv), b"0 10\nvlanif100\n" * 2)
        self.ctl("verify")

    def test_are_shared_fairly(self):
        self.start_card(9, "master")
        with self.connect() as script, self.connect() as client:
            self.cards[9].send_signal(signal.SIGSTOP)
            lines = [b"if add v%d vlan %d\n" % (vlan, vlan) for vlan in range(1, 100)]
            script.sendall(b"".join(lines))
            client.sendall(b"if list\n")
            with self.connect() as impatient:
                impatient.sendall(b"if add vlanif999\n")
            self.cards[9].send_signal(signal.SIGCONT)
            self.assertLess(client.recv(1000).count(b"v"), 10, "a long script keeps nobody waiting")
            count = lambda: self.ctl("show interfaces --count")
            self.wait_until("the script is through", lambda: count() == "99\n")
        pid = self.cards[9].pid
        few = len(os.listdir(f"/proc/{pid}/fd")) + 8
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (few, few))
        crowd = [self.connect() for _ in range(20)]
        self.assertIn(b"no file descriptor left", read_all(crowd[-1].recv))

    def test_of_the_shelf_turn_strangers_away(self):
        def frame(name, payload=b""):
            return struct.pack("<IH", 2 + len(name) + len(payload), len(name)) + name + payload

        self.start_card(9, "master")
        call = frame(b"dpm_slave_up_pro_over_sync_receive", b"\0\0\0\0")
        for greeting in [b"\xff" * 64, frame(b"hello"), call, frame(b"hello", bytes(16)) + call]:
            with self.connect("shelf.sock") as stranger:
                stranger.sendall(greeting)
                read_all(stranger.recv)  # the card's own greeting
        self.assertEqual(self.rows("card status")[0]["peer"], "no")
        self.start_card(10, "standby")
        self.wait_for_peer(9)

    def test_are_their_owners_and_go_with_the_card(self):
        self.start_shelf()
        for name in ["", "card-9.sock", "card-10.sock", "shelf.sock"]:
            mode = stat.S_IMODE(os.stat(f"{self.dir}/{name}").st_mode)
            self.assertEqual(mode, 0o600 if name else 0o700, name)
        self.ctl("card quit", 10)
        self.assertEqual(self.cards.pop(10).wait(PATIENCE_SEC), 0)
        self.cards[9].send_signal(signal.SIGHUP)
        self.assertEqual(self.cards.pop(9).wait(PATIENCE_SEC), 0)
        self.assertEqual([name for name in os.listdir(self.dir) if not name.startswith("log")], [])

    def refused_card(self, *arguments, **options):
        command = self.program("dpm-card", "--slot", "9", *arguments)
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, **options)
        self.assertEqual(done.returncode, 1)
        return done.stderr

    def test_are_put_only_where_a_card_can_have_them_alone(self):
        few = lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (40, 40))
        os.symlink(self.dir, f"{self.dir}/link")
        for mode, arguments, before, said in [
            (0o777, [], None, "not a directory of this user's own"),
            (0o700, ["--dir", f"{self.dir}/link"], None, "is a link"),
            (0o700, ["--dir", f"{self.dir}/{'x' * 90}"], None, "too long for sockets"),
            (0o700, ["--config", self.dir], None, f"{self.dir}: Is a directory"),
            (0o700, [], few, "needs 80 file descriptors"),
        ]:
            os.chmod(self.dir, mode)
            self.assertIn(said, self.refused_card(*arguments, preexec_fn=before))
        self.start_card(9, "master")
        self.assertIn("slot 9 runs already", self.refused_card())
        end(self.cards.pop(9))
        self.assertTrue(os.path.exists(f"{self.dir}/card-9.sock"))
        self.start_card(9, "master")  # in place of the dead one

    def test_are_one_cards_of_several_that_start_in_a_slot_at_once(self):
        command = self.program("dpm-card", "--slot", "9")
        crowd = [subprocess.Popen(command, stderr=subprocess.DEVNULL) for _ in range(4)]
        for card in crowd:
            self.addCleanup(end, card)
        self.wait_until("three give up", lambda: sum(card.poll() == 1 for card in crowd) == 3)
        self.cards[9] = next(card for card in crowd if card.poll() is None)
        self.wait_for(9, "master")


if __name__ == "__main__":
    unittest.main()
