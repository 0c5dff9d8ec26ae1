"""Runs the acceptance scenarios, or those that are named: each within its time, each on a machine that is put back to
order behind it. Prints a line for each and one of counts, and ends with a status that fits."""

import os
import pathlib
import signal
import sys
import time
import traceback

from marking import demonstration, failed_saves
from robot import PATIENCE, SHARE, Tool, output, restore
from round_trip import round_trip
from startup import killed, launched, refused, signalled

# round_trip leaves its disk behind and is the last.
scenarios = [refused, killed, signalled, launched, demonstration, failed_saves, round_trip]
scenarios = [scenario for scenario in scenarios if not sys.argv[1:] or scenario.__name__ in sys.argv[1:]]
signal.signal(signal.SIGALRM, signal.default_int_handler)  # out of time: a KeyboardInterrupt
failed = 0
for scenario in scenarios:
    begin = time.monotonic()
    pathlib.Path(SHARE, "running").write_text(scenario.__doc__)
    verdict = "PASS"
    try:
        signal.alarm(int(120 * PATIENCE))
        scenario()
    except (Exception, KeyboardInterrupt):  # pylint: disable=broad-except
        signal.alarm(0)
        verdict = "FAIL"
        failed += 1
        print(traceback.format_exc(), *(output("out") + output("err")).splitlines()[-50:], sep="\n  ")
        print(f"  The tool's status: {Tool.running.process.poll()}; the screen: {scenario.__name__}.png")
        os.write(Tool.running.requests, f"{SHARE}/{scenario.__name__}.png\n".encode())
        time.sleep(2)  # nobody knows whether the tool still draws
    signal.alarm(0)
    restore()
    print(f"{verdict} {scenario.__doc__} ({time.monotonic() - begin:.1f} s)", flush=True)
print(f"machine: {len(scenarios) - failed} passed, {failed} failed, 0 skipped", flush=True)
sys.exit(failed != 0)
