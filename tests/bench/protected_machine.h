// A described machine as it is at backup time: four fixed volumes of two disks each, among many other devices.
#pragma once

#include "tests/bench/bench_machine.h"

// How many drivers an extension file of it records: disk and controller of every disk under a volume.
inline constexpr unsigned kRecordedDrivers = 16;

// `devices` present devices in all, at least 64, the recorded ones last; half of the others are disks and adapters too.
BenchMachine MakeProtectedMachine(unsigned devices);
