#!/usr/bin/env python3
"""The real-mail-server suite's driver: runs inside the namespaces that
tests/mailserver/run made, sets up the server once, runs the selected checks
and prints their table. Its last line is the total alone, "total: N passed,
N failed", over every check it ran (under --strict a check that could not
run counts as failed). Exit status 0 only when every check passed."""
import argparse
import os
import sys
import time
import traceback

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import mailserver  # noqa: E402
import checks_baseline  # noqa: E402
import checks_batches  # noqa: E402
import checks_crashes  # noqa: E402
import checks_concurrency  # noqa: E402
import checks_deliveries  # noqa: E402
import checks_dovecot  # noqa: E402
import checks_faults  # noqa: E402
import checks_logins  # noqa: E402
import checks_powerloss  # noqa: E402

GROUPS = [
    ("baseline", checks_baseline),
    ("deliveries", checks_deliveries),
    ("powerloss", checks_powerloss),
    ("dovecot", checks_dovecot),
    ("logins", checks_logins),
    ("concurrency", checks_concurrency),
    ("crashes", checks_crashes),
    ("faults", checks_faults),
    ("batches", checks_batches),
]


class Results:
    """Each check's outcome, and the figures the groups report."""

    def __init__(self):
        self.rows = []
        self.figures = []

    def passed(self, group, name, detail=""):
        self.rows.append((group, name, "passed", detail))
        print("  PASS %s: %s %s" % (group, name, detail), flush=True)

    def failed(self, group, name, detail):
        self.rows.append((group, name, "FAILED", detail))
        print("  FAIL %s: %s\n%s" % (group, name, detail), flush=True)

    def skipped(self, group, name, detail):
        self.rows.append((group, name, "skipped", detail))
        print("  SKIP %s: %s (%s)" % (group, name, detail), flush=True)

    def figure(self, text):
        self.figures.append(text)
        print("  %s" % text, flush=True)

    def check(self, group, name, function, *args):
        """Runs one check; a SuiteError or AssertionError fails it."""
        try:
            detail = function(*args)
        except mailserver.NotAvailable as missing:
            self.skipped(group, name, "needs %s" % missing)
            return False
        except (mailserver.SuiteError, AssertionError) as error:
            self.failed(group, name, str(error))
            return False
        except Exception:  # a fault of the suite itself is a failure too
            self.failed(group, name, traceback.format_exc())
            return False
        self.passed(group, name, detail or "")
        return True

    def table(self):
        print("\n=== mail-server suite")
        width = max(len("%s: %s" % (g, n)) for g, n, _, _ in self.rows) if self.rows else 10
        for group, name, outcome, _ in self.rows:
            print("  %-*s  %s" % (width, "%s: %s" % (group, name), outcome))
        for group, _ in GROUPS:
            rows = [r for r in self.rows if r[0] == group]
            if rows:
                print("  %s: %d passed, %d failed, %d skipped" % (
                    group, sum(r[2] == "passed" for r in rows), sum(r[2] == "FAILED" for r in rows),
                    sum(r[2] == "skipped" for r in rows)))
        for text in self.figures:
            print("  " + text)

    def totals(self, strict):
        """(passed, failed) over every check; a skipped check did not run,
        unless strict, where it fails the suite and counts as failed."""
        passed = sum(r[2] == "passed" for r in self.rows)
        failed = sum(r[2] == "FAILED" or (strict and r[2] == "skipped") for r in self.rows)
        return passed, failed

    def ok(self, strict):
        return self.totals(strict)[1] == 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--cache", required=True)
    parser.add_argument("--root", required=True)
    parser.add_argument("--full", action="store_true", help="every kill point and all 20 rounds")
    parser.add_argument("--light", action="store_true",
                        help="a few kill points and faults per command (for the sanitizer build)")
    parser.add_argument("--only", action="append", default=[], help="run only these groups")
    parser.add_argument("--strict", action="store_true", help="a check that cannot run fails the suite")
    options = parser.parse_args()

    started = time.monotonic()
    server = mailserver.MailServer(options.build, options.cache, options.root)
    results = Results()
    # a server that cannot be set up fails the suite with its total still last
    ready = results.check("setup", "the private namespaces and users", server.enter)
    for group, module in GROUPS:
        if not ready or options.only and group not in options.only:
            continue
        print("=== %s" % group, flush=True)
        group_started = time.monotonic()
        try:
            module.run(server, results, options)
        except Exception:  # a group that stops outside its checks fails too
            results.failed(group, "the group ran to its end", traceback.format_exc())
        results.figure("%s took %.0f s" % (group, time.monotonic() - group_started))
    if ready:
        results.check("setup", "qmail-send stops at the end", server.stop_qmail)
    results.table()
    print("  whole suite took %.0f s" % (time.monotonic() - started))
    print("total: %d passed, %d failed" % results.totals(options.strict), flush=True)
    return 0 if results.ok(options.strict) else 1


if __name__ == "__main__":
    sys.exit(main())
