#!/usr/bin/env python3
"""The report of a run: report_test.py AGENT [unittest's arguments]

Exits with 77 when a test was skipped, for want of a browser or of network namespaces.
"""
import html
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

import agent_test
from agent_test import EXAMPLES, LIMIT, Agent, Controller, run

BROWSER = shutil.which("chromium")
# In a copy of the page: what it shows at first, after a jump, with a filter and unfolded.
LOOK = """<script>{
const shown = (selector) => [...document.querySelectorAll(selector)].filter((e) => !e.closest('[hidden]'));
const texts = (selector) => shown(selector).map((element) => element.textContent);
const filter = (word) => { find('filter').value = word; find('filter').dispatchEvent(new Event('input')); };
const top = () => shown('.band').pop().getBoundingClientRect().top / innerHeight;
const seen = {
    commands: texts('.band b'), bands: texts('.band'), marks: texts('nav .mark'), arrows: shown('.row:not(.note)').length,
    lanes: new Set(shown('#lanes span').map((lane) => lane.style.left)).size, times: texts('.row time'),
    unexpected: texts('.unexpected b'), failures: texts('.failure'), top: top(),
};
[...document.querySelectorAll('nav button')].pop().click();
seen.topAfterJump = top(), seen.detail = find('detail').textContent;
filter('TEARDOWN'), seen.filtered = texts('.row .text'), filter('');
document.dispatchEvent(new KeyboardEvent('keydown', {key: 'l'}));
seen.unfolded = shown('.row, .band').length, seen.logs = texts('.row.log .text').join();
seen.intruders = document.querySelectorAll('img, script').length - 2 - devices.length + (window.hacked || 0);
make(document.body, 'pre', 'seen', JSON.stringify(seen));
}</script></html>"""


class ReportTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.page = os.path.join(self.directory.name, "run.html")

    def look(self):
        if not BROWSER:
            self.skipTest("no chromium")
        copy = pathlib.Path(self.directory.name, "copy.html")
        copy.write_text(pathlib.Path(self.page).read_text().replace("</html>", LOOK))
        shown = subprocess.run([BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--dump-dom",
                                f"--user-data-dir={self.directory.name}/profile", copy.as_uri()],
                               capture_output=True, text=True, timeout=2 * LIMIT, check=True).stdout
        return json.loads(html.unescape(re.search('<pre class="seen">(.*)</pre>', shown)[1]))

    def test_an_example(self):
        script = EXAMPLES / "source_session.capi"
        self.assertEqual(run("--time-scale", "20", "--report", self.page, str(script))[0], 0)
        commands = re.findall("^[^#,\n]+", script.read_text(), re.MULTILINE)
        data = json.loads(re.search('data-device="">(.*)</script>\n', pathlib.Path(self.page).read_text())[1])
        told = [entry for entry in data["entries"] if entry[3] != "status,RUNNING"]
        drawn = [text for _, _, component, text in told if component in ("session", "report", "compositor", "audio", "tool")]
        seen = self.look()
        self.assertEqual(seen["commands"], commands)
        self.assertEqual(seen["arrows"], len(drawn) + len(commands))
        self.assertRegex(seen["bands"][1], "✓start_wfd_connectionPeerAddress.*COMPLETE,WfdSessionID,10000001$")
        self.assertEqual("".join(seen["marks"]), "✓✓✓✓✓✓✓–✓✓✓✓")
        self.assertEqual(seen["failures"] + seen["unexpected"], [])
        self.assertTrue(0 < seen["topAfterJump"] < 1 < seen["top"], seen)
        self.assertRegex(seen["detail"], r"device time  thread \d+  capi\nsta_reset_default\nanswer after .*COMPLETE")
        self.assertEqual(seen["filtered"], [text for text in drawn if "teardown" in text.lower()])
        self.assertEqual(seen["unfolded"], len(told))

    def test_hostile_texts_and_failures(self):
        attack = "</script><script>hacked = 1</script><img src=x onerror='hacked = 2'><!--<script>\u2028\\u003c -> -1"
        self.assertEqual(run("--wait-limit", "1", "--report", self.page, stdin=f"dev_send_frame,framename,{attack}\n"
                             f"#expect ERROR\nca_get_version,{attack}\n#wait report {attack}\n")[0], 1)
        seen = self.look()
        self.assertEqual(seen["intruders"], 0)
        self.assertIn(attack, seen["bands"][1])
        self.assertIn(attack, seen["logs"])
        self.assertEqual(seen["unexpected"], ["ca_get_version"])
        self.assertRegex(seen["failures"][0], "^✗ expected status,ERROR, got status,COMPLETE.*:3$")
        self.assertIn(f'✗ waited in vain for "{attack}', seen["failures"][1])

    def test_two_hosts(self):
        home = EXAMPLES.parent
        hosts = subprocess.run(
            ["bash", "-c", 'exec {REPORT}>"$1"; export REPORT; exec "${@:2}"', "bash", self.page, home / "scripts/network.sh",
             home / "scripts/two_hosts.sh", "--inside", EXAMPLES / "r2_sink.capi", EXAMPLES / "r2_source.capi"],
            env={**os.environ, "AGENT": agent_test.AGENT[0], "COLUMNS": "160"}, capture_output=True, text=True, check=False)
        if hosts.returncode == 77:
            self.skipTest(hosts.stderr)
        self.assertEqual(hosts.returncode, 0, hosts.stderr)
        seen = self.look()
        self.assertEqual((seen["lanes"], len(seen["commands"])), (6 + 1 + 6, 7 + 6))
        self.assertEqual(seen["times"], sorted(seen["times"], key=float))
        self.assertEqual({"sink: received teardown", "source: sent teardown"} - {*seen["filtered"]}, set())

    def test_when_it_is_written(self):
        with Agent("--listen", "0", "--report", "{directory}/page") as agent:
            Controller(agent.port()).command("ca_get_version,first")
            controller = Controller(agent.port())
            agent.await_text("page", "ca_get_version,first")
            controller.command("ca_get_version,second")
            agent.process.send_signal(signal.SIGUSR1)
            agent.await_text("page", "ca_get_version,second")


if __name__ == "__main__":
    agent_test.AGENT = [sys.argv.pop(1)]
    result = unittest.main(warnings="ignore", exit=False).result
    sys.exit(1 if not result.wasSuccessful() else 77 if result.skipped else 0)
