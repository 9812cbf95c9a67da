#!/usr/bin/env bash
# Makes the Debian packages, as the preset does.
#   debian_packages_test.sh SOURCE
set -u
source=$1
. "$source/scripts/quietly.sh"
. "$source/tests/support/pages.sh"
cd "$source" || exit 1

rm -f build/packages/*.deb
quietly eval "$(page_command "$source/docs/linux-host.md" 'cmake --preset debian')" || exit 1
(cd build/packages && ls -s --block-size=K -- *.deb)
