// Runs a function at the end of the scope.
#pragma once

#include <utility>

template <typename Function>
struct ScopeGuard {
  Function function;
  explicit ScopeGuard(Function f) : function(std::move(f)) {}
  ScopeGuard(const ScopeGuard &) = delete;
  ScopeGuard &operator=(const ScopeGuard &) = delete;
  ~ScopeGuard() { function(); }
};
