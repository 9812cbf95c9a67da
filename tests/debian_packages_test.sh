#!/usr/bin/env bash
# Makes the Debian packages, as the preset does, and lets lintian judge them.
#   debian_packages_test.sh SOURCE
set -u
source=$1
. "$source/scripts/quietly.sh"
. "$source/tests/support/pages.sh"
cd "$source" || exit 1

rm -f build/packages/*.deb
quietly eval "$(page_command "$source/docs/linux-host.md" 'cmake --preset debian')" || exit 1
(cd build/packages && ls -s --block-size=K -- *.deb)
if ! command -v lintian >/dev/null; then
  echo "lintian is not installed: its judgement is skipped"
  exit 0
fi
# That something is not hardened is only information to it.
judged=$(lintian --allow-root --display-info --fail-on error,warning build/packages/*.deb)
if [[ $? -ne 0 || $judged == *' hardening-'* ]]; then
  grep -E '^[^I]| hardening-' <<<"$judged"
  echo "FAILED: mend that, or name it in cmake/debian/*.overrides with the reason"
  exit 1
fi
echo "lintian: clean but for $(grep -h '^[a-z]' cmake/debian/*.overrides | wc -l) named overrides"
