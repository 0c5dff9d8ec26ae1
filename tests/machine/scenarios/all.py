"""Runs the scenarios of all files, or those that are named."""

import sys

import faults
import marking
import robot
import round_trip
import startup

scenarios = startup.SCENARIOS + marking.SCENARIOS + faults.SCENARIOS + round_trip.SCENARIOS
robot.run([scenario for scenario in scenarios if not sys.argv[1:] or scenario.__name__ in sys.argv[1:]])
