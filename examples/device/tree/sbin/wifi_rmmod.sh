#!/bin/sh
# Unloads the radio drivers before an upgrade or a restart. The radios here have none.
exit 0
