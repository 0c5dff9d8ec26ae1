"""Runs the acceptance scenarios, or those that are named: each within its time, each on a machine that is put back to
order behind it. Prints a line for each and one of counts, and ends with a status that fits."""

import signal
import sys
import time
import traceback

from cuts import cut
from marking import demonstration, failed_saves
from robot import PATIENCE, output, restore
from round_trip import round_trip
from startup import changes_nothing, killed, launched, refused, signalled
from upgrade import upgraded

# round_trip leaves its disk behind and is the last.
scenarios = [refused, killed, changes_nothing, signalled, launched, cut, demonstration, failed_saves, upgraded, round_trip]
scenarios = [scenario for scenario in scenarios if not sys.argv[1:] or scenario.__name__ in sys.argv[1:]]
signal.signal(signal.SIGALRM, signal.default_int_handler)  # out of time: a KeyboardInterrupt
failed = 0
for scenario in scenarios:
    begin = time.monotonic()
    print(scenario.__doc__, end=": ", flush=True)
    try:
        signal.alarm(int(120 * PATIENCE))
        scenario()
        print("passed", end=" ")
    except (Exception, KeyboardInterrupt):  # pylint: disable=broad-except
        signal.alarm(0)
        failed += 1
        print(traceback.format_exc(), *(output("out") + output("err")).splitlines()[-50:], sep="\n  ")
        print("FAILED", end=" ")
    signal.alarm(0)
    restore()
    print(f"({time.monotonic() - begin:.1f} s)", flush=True)
print(f"machine: {len(scenarios) - failed} passed, {failed} failed, 0 skipped", flush=True)
sys.exit(failed != 0)
