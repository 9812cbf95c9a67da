#!/usr/bin/env bash
# The Debian packages by the judgement of lintian.
#   debian_lint_test.sh SOURCE
set -u
cd "$1" || exit 1

if ! command -v lintian >/dev/null; then
  echo "skipped: lintian is not installed"
  exit 77
fi
# It leaves files in its folder for what is temporary.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# That something is not hardened is only information to it.
judged=$(TMPDIR=$work lintian --allow-root --display-info --fail-on error,warning build/packages/*.deb)
if [[ $? -ne 0 || $judged == *' hardening-'* ]]; then
  grep -E '^[^I]| hardening-' <<<"$judged"
  echo "FAILED: mend that, or name it in cmake/debian/*.overrides with the reason"
  exit 1
fi
echo "lintian: clean but for $(grep -h '^[a-z]' cmake/debian/*.overrides | wc -l) named overrides"
