#!/usr/bin/env python3
"""The alert rules are ones that Prometheus takes, and rules and dashboard ask for metrics that the server has."""
import json
import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FOLDER = ROOT / "packaging" / "monitoring"
METRIC = re.compile(r"\b((?:ovrtspd|process)_[a-z_]+)\b")


def served():
    """The names in the source of the metrics."""
    return set(re.findall(r'"((?:ovrtspd|process)_[a-z_]+)"', (ROOT / "refhost/http/MetricsRoutes.cpp").read_text()))


def families(expression):
    """The families of the metrics that an expression names: a histogram has samples with endings of their own."""
    known = served()
    for name in METRIC.findall(expression):
        family = re.sub(r"_(bucket|sum|count)$", "", name)
        yield family if family in known else name


class Monitoring(unittest.TestCase):
    def test_prometheus_takes_the_rules(self):
        run = subprocess.run(["promtool", "check", "rules", FOLDER / "ovrtspd-alerts.yml"], capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)

    def test_rules_ask_for_what_is_served(self):
        asked = {name for line in (FOLDER / "ovrtspd-alerts.yml").read_text().splitlines() if "expr:" in line
                 for name in families(line)}
        self.assertTrue(asked)
        self.assertLessEqual(asked, served())

    def test_the_dashboard_asks_for_what_is_served(self):
        dashboard = json.loads((FOLDER / "ovrtspd-dashboard.json").read_text())
        asked = {name for panel in dashboard["panels"] for target in panel["targets"]
                 for name in families(target["expr"])}
        self.assertGreater(len(asked), 10)
        self.assertLessEqual(asked, served())
        places = [(panel["gridPos"]["x"], panel["gridPos"]["y"]) for panel in dashboard["panels"]]
        self.assertEqual(len(places), len(set(places)))


if __name__ == "__main__":
    unittest.main()
