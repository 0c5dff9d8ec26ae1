"""Runs the acceptance scenarios, or those that are named."""

import sys

import robot
from marking import demonstration, failed_saves
from round_trip import round_trip
from startup import discovery, killed, launched, refused, signalled, standard_streams

# round_trip leaves its disk behind and is the last.
scenarios = [refused, killed, standard_streams, signalled, launched, discovery, demonstration, failed_saves, round_trip]
robot.run([scenario for scenario in scenarios if not sys.argv[1:] or scenario.__name__ in sys.argv[1:]])
