#!/usr/bin/env bash
# Prints the tool's messages, as a template for catalogs: what its sources pass to tr() and marked().
# usage: locale/messages.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# Headers explain the two functions by examples, which are no messages.
find tools/vell -name '*.cpp' | LC_ALL=C sort |
  xgettext --files-from=- --language=C++ --from-code=UTF-8 --no-location --no-wrap --output=- \
    --keyword --keyword=tr:1c,2 --keyword=marked:1c,2 --flag=tr:2:pass-c-format --flag=marked:2:pass-c-format \
    --flag=formatted:1:c-format --package-name=VellCore --copyright-holder= |
  sed "s/charset=CHARSET/charset=UTF-8/"
