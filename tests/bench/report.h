// What the benchmarks print in the end: one table, each figure beside its budget.
#pragma once

#include <map>
#include <string>

// Each benchmark's smallest time in nanoseconds, by its name and arguments ("ReadFiles/10000", "Query/"): what the work
// costs when nothing else disturbs the machine.
struct Times {
  std::map<std::string, double> nanoseconds;
  double Of(const char *name) const { return nanoseconds.count(name) != 0 ? nanoseconds.at(name) : 0.0; }
};

// Prints one row of the table.
void Row(const char *what, double measured, double budget, const char *unit);

// --- The groups: each adds its benchmarks before they run, then prints its rows and removes what it made -------------

void AddRestoreBenchmarks(const char *hive);  // a large SYSTEM hive; null: its row is left out
void PrintRestoreRows(const Times &times);
void AddHiveBenchmarks();
void PrintHiveRows(const Times &times);
void AddInjectBenchmarks(const char *hive);  // as above
void PrintInjectRows(const Times &times);
void AddExtensionBenchmarks();
void PrintExtensionRows(const Times &times);
