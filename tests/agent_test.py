#!/usr/bin/env python3
"""The agent as test controllers and people meet it.

    agent_test.py AGENT [unittest's arguments]

The controller here behaves as those of certification labs do: a blank before the line's CRLF, lines
read until one has RUNNING in it, then the result with a single recv, and reconnecting without closing.
"""
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import unittest.mock

EXAMPLES = pathlib.Path(__file__).resolve().parent.parent / "examples"
AGENT = []
LIMIT = 60  # seconds that anything here may take on a busy machine

RUNNING = "status,RUNNING"
COMPLETE = "status,COMPLETE"
INVALID = "status,INVALID,errorCode,-2"
REFUSED = "status,ERROR,errorCode,-1"
TEN_SECONDS = "sta_generate_event,UIBCEventType,Mouse"


class Agent:
    """A running agent; its files lie in a directory of its own."""

    def __init__(self, *arguments, stdin=""):
        self.directory = tempfile.TemporaryDirectory()
        self.stdin = stdin
        with open(self.path("err"), "w") as errors:
            self.process = subprocess.Popen(
                AGENT + [a.format(directory=self.directory.name) for a in arguments],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors, text=True)

    def path(self, name):
        return os.path.join(self.directory.name, name)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()
        self.directory.cleanup()

    def error_text(self):
        return pathlib.Path(self.path("err")).read_text()

    def await_text(self, name, pattern):
        """Waits until a file of the agent's holds `pattern`; the match."""
        deadline = time.monotonic() + LIMIT
        while not (match := re.search(pattern, pathlib.Path(self.path(name)).read_text())):
            if time.monotonic() > deadline:
                raise AssertionError(f"no {pattern} in {name}: {self.error_text()}")
            time.sleep(0.01)
        return match

    def port(self):
        return int(self.await_text("err", r"listening on .*:(\d+)\n")[1])

    def end(self):
        """Waits for the end: the exit status and standard output."""
        output, _ = self.process.communicate(self.stdin, LIMIT)
        return self.process.returncode, output


class Controller:
    def __init__(self, port, source="127.0.0.1"):
        self.socket = socket.create_connection(("127.0.0.1", port), LIMIT, (source, 0))

    def send(self, *lines):
        self.socket.sendall("".join(line + " \r\n" for line in lines).encode())

    def receive_lines(self, count=1):
        lines = [b""] * count
        for i in range(count):
            while not lines[i].endswith(b"\n") and (byte := self.socket.recv(1)):
                lines[i] += byte
        return [line.decode().removesuffix("\r\n") for line in lines]

    def result(self):
        while "RUNNING" not in (line := self.receive_lines()[0]) and line:
            pass
        return self.socket.recv(1024).decode().removesuffix("\r\n")

    def command(self, line):
        self.send(line)
        return self.result()


def run(*arguments, stdin=""):
    """Runs an agent to its end: exit status, output, errors."""
    with Agent(*arguments, stdin=stdin) as agent:
        return *agent.end(), agent.error_text()


class ControllerTest(unittest.TestCase):
    def setUp(self):
        self.replies = tempfile.NamedTemporaryFile("w", suffix=".txt")
        self.replies.write("# test\n\nSta_Set_P2P\nsta_scan , Result, 7\n")
        self.replies.flush()
        self.agent = Agent("--listen", "localhost:0", "--time-scale", "5", "--replies", self.replies.name,
                           "--journal", "{directory}/journal")
        self.addCleanup(self.agent.__exit__)
        self.port = self.agent.port()

    def tearDown(self):
        # Whatever a test did, the next command is served, and the end is clean.
        while (answer := Controller(self.port).command("ca_get_version")) == REFUSED:
            pass  # the agent has yet to notice that another controller has gone
        self.assertRegex(answer, r"^status,COMPLETE,version,\d")
        self.agent.process.terminate()
        self.assertEqual(self.agent.end()[0], 0, self.agent.error_text())

    def test_every_line_is_answered_running_and_a_result(self):
        controller = Controller(self.port)
        longest = "ca_get_version,x," + "x" * (65536 - 17 - 1)  # the controller adds a blank
        for line, result in [
                ("\r\n \t\r\nCA_get_Version\t", r"status,COMPLETE,version,\d+\.\d+\.\d+"),
                ("device_list_interfaces,interfaceType,802.11", COMPLETE + ",interfaceType,802.11,interfaceID,wlan0"),
                ("sta_get_ip_config,interface,lo", COMPLETE + ",dhcp,0,ip,127.0.0.1,mask,255.0.0.0"),
                ("sta_get_mac_address,interface,lo", COMPLETE + ",mac,00:00:00:00:00:00"),
                ("sta_get_ip_config,interface,none0", REFUSED),
                ("sta_get_parameter,Parameter,DeviceList", INVALID),
                ("sta_set_p2p,interface,wlan0", COMPLETE),
                ("start_wfd_connection,PeerDevType,sink", INVALID),
                ("start_wfd_connection,PeerAddress,192.168.49.2,PeerDevType,display", INVALID),
                ("start_wfd_connection,PeerAddress,192.168.49.2,RtspPort,65536,PeerDevType,sink", INVALID),
                ("start_wfd_connection,Interface,wlan0,PeerAddress,192.168.49.2,PeerDevType,Sink,new,1",
                 COMPLETE + ",WfdSessionID,10000001"),
                ("x_sink_input,kind,key,code,a,action,move", INVALID),
                ("no_such_command", INVALID),
                ("no_such_command", INVALID),
                ("ca_get_version\0", INVALID),
                (longest, COMPLETE + ",version.*"),
                (longest + "xx", INVALID)]:
            self.assertRegex(controller.command(line), f"^{result}$", line[:80])
        errors = self.agent.error_text()
        for reason in ["NUL byte", "more than 65536 bytes", "RtspPort must be", "PeerDevType must be source, sink",
                       "PeerAddress must be an IPv4 address, got nothing", 'no interface "none0"',
                       'unknown command "no_such_command"; .*--replies']:
            self.assertRegex(errors, reason)
        self.assertEqual(errors.count("no_such_command"), 1)  # explained once

    def test_many_commands_one_by_one_and_at_once(self):
        controller = Controller(self.port)
        for i in range(500):
            self.assertEqual(controller.command(f"sta_scan,{i}"), COMPLETE + ",Result,7")
        controller.send(*["sta_scan,padding," + "x" * 500] * 500)
        controller.socket.sendall(b"sta_scan\nsta_sc")  # half a line is no command
        controller.socket.shutdown(socket.SHUT_WR)  # what was sent is still carried out
        self.assertEqual(controller.receive_lines(1003), [RUNNING, COMPLETE + ",Result,7"] * 501 + [""])
        self.agent.await_text("err", 'sent no end of its last line: "sta_sc"')

    def test_a_controller_that_reconnects_without_closing_is_served(self):
        old = [Controller(self.port)]
        old[0].send(TEN_SECONDS, "sta_scan", "sta_scan")
        self.assertEqual(old[0].receive_lines(), [RUNNING])
        self.agent.await_text("journal", "UIBCEvent: Mouse")  # it has its turn
        for _ in range(20):
            old.append(Controller(self.port))
            self.assertEqual(old[-1].command("sta_scan"), COMPLETE + ",Result,7")
        for controller in old[:-1]:
            self.assertEqual(controller.receive_lines(), [""])
        self.agent.await_text("err", "its answer is dropped: status,COMPLETE")
        self.agent.await_text("err", "2 queued commands are dropped")

    def test_a_controller_from_another_address_is_refused(self):
        first = Controller(self.port, "127.0.0.2")
        with first.socket:  # closed in any case, for tearDown
            first.send(TEN_SECONDS)
            for _ in range(5):
                other = Controller(self.port)
                other.send("ca_get_version", "ca_get_version")
                self.assertEqual(other.receive_lines(3), [RUNNING, REFUSED, ""])
            self.assertEqual(first.result(), COMPLETE)

    def test_a_controller_dies_in_mid_command(self):
        controller = Controller(self.port)
        controller.send(TEN_SECONDS, *["sta_reset_default"] * 10)
        self.assertEqual(controller.receive_lines(), [RUNNING])
        # As a machine goes that crashes: what is sent to it is refused.
        controller.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        controller.socket.close()
        self.agent.await_text("err", "10 queued commands are dropped")


class AgentTest(unittest.TestCase):
    def test_a_command_is_finished_before_the_end(self):
        with Agent("--listen", "0", "--time-scale", "5", "--journal", "{directory}/journal") as agent:
            controller = Controller(agent.port())
            controller.send(TEN_SECONDS, "ca_get_version")
            self.assertEqual(controller.receive_lines(), [RUNNING])
            agent.await_text("journal", "Mouse event injection")
            agent.process.terminate()
            agent.await_text("err", "finishing sta_generate_event before the end")
            self.assertEqual(controller.receive_lines(2), [COMPLETE, ""])
            self.assertEqual(agent.end()[0], 0)

    def test_scripts(self):
        for script, status, error in [
                ("ca_get_version\n#expect INVALID,errorCode\ndev_exec_action\n # a comment\n#settle\n", 0, ""),
                ("no_such", 1, r":1: expected status,COMPLETE, got status,INVALID,errorCode,-2"),
                ("#expect ERROR\nca_get_version\n", 1, r":2: expected status,ERROR, got status,COMPLETE,version"),
                ("#expect COMPLETE\n#expect COMPLETE\nca_get_version\n", 1, "no command followed"),
                ("#expectCOMPLETE\n", 1, "unknown directive"),
                ("#wait report never\n", 1, 'in vain for "never" of report')]:
            code, _, errors = run("--wait-limit", "1", stdin=script)
            self.assertEqual(code, status, script)
            self.assertRegex(errors, error or "^$")

    def test_usage(self):
        with tempfile.TemporaryDirectory() as directory, socket.create_server(("127.0.0.1", 0)) as blocker:
            twice, served = os.path.join(directory, "twice"), os.path.join(directory, "served")
            pathlib.Path(twice).write_text("sta_scan\nsta_scan\n")
            pathlib.Path(served).write_text("dev_send_frame\n")
            for arguments, error in [
                    (["--replies", twice], "twice:2: .*sta_scan"),
                    (["--replies", served], "dev_send_frame, which the library carries out"),
                    (["--listen", "::1:9000"], r"not \[HOST:\]PORT"),
                    (["--listen", str(blocker.getsockname()[1])], "cannot listen on .*: Address already in use"),
                    (["--time-scale", "0"], "must be a number above 0"),
                    (["--replies", directory], "cannot read the replies"),
                    (["--journal", directory], "cannot write the journal"),
                    (["--report", "/dev/full"], "cannot write the report"),
                    (["--library", "/none.so"], "cannot load the library"),
                    (["none.capi"], "cannot read the script none.capi")]:
                code, output, errors = run(*arguments, stdin="ca_get_version\n")
                self.assertEqual((code, output), (2, ""), arguments)
                self.assertRegex(errors, error)

    def test_journal_log_and_trace(self):
        with tempfile.TemporaryDirectory() as directory, unittest.mock.patch.dict(os.environ, ANDROID_LOG_TAGS="*:S,x :e"):
            journal, log = os.path.join(directory, "journal"), os.path.join(directory, "log")
            code, output, errors = run("--journal", journal, "--log", log, "--trace",
                                       stdin="sta_reset_default\ndev_send_frame\n")
            self.assertEqual((code, errors), (0, ""))
            self.assertEqual(output, "sta_reset_default\nstatus,RUNNING\nstatus,COMPLETE\n"
                             "    binder     thread pool started\ndev_send_frame\nstatus,RUNNING\nstatus,COMPLETE\n")
            self.assertRegex(pathlib.Path(journal).read_text(), r"capi +sta_reset_default\n(.*\n)*.*binder")
            self.assertRegex(pathlib.Path(log).read_text(), r"^\d\d-\d\d [\d:.]{12} +\d+ +\d+ E +: vestor: Received Dev Send Frame \n")
            os.environ["ANDROID_LOG_TAGS"] = "*:V,:f"
            run("--log", log, stdin="dev_send_frame\n")
            self.assertEqual(pathlib.Path(log).read_text(), "")

    def test_what_fails_says_why(self):
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent"
        script = ("#expect COMPLETE\nsta_preset_testparameters,mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink\n"
                  "#expect ERROR,errorCode,-1\nstart_wfd_connection,RtspPort,-100,PeerDevType,p-sink\n")
        code, _, errors = run("--time-scale", "2000", stdin=script)
        self.assertEqual(code, 0, errors)
        self.assertRegex(errors, "no system bus answers at unix:path=/nonexistent")
        self.assertRegex(errors, "no mDNS daemon has registered this device")
        script = "#expect ERROR,errorCode,-1\nstart_wfd_connection,PeerAddress,127.0.0.1,PeerDevType,sink\n"
        with socket.create_server(("", 7236)):
            code, _, errors = run("--time-scale", "2000", "--peer", "linked", stdin=script)
        self.assertEqual(code, 0, errors)
        self.assertRegex(errors, "cannot listen on port 7236: Address already in use")


if __name__ == "__main__":
    AGENT = [sys.argv.pop(1)]
    unittest.main(warnings="ignore")
