#!/usr/bin/env bash
# Brings the catalogs up to date with the tool's messages: new ones come in empty, those that are gone go.
# usage: locale/update.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
messages=$(mktemp)
trap 'rm -f "$messages"' EXIT
./messages.sh >"$messages"
for catalog in *.po; do
  msgmerge --quiet --no-fuzzy-matching --no-location --no-wrap "$catalog" "$messages" |
    msgattrib --no-obsolete --no-wrap | sed '/^"POT-Creation-Date:/d; /^"Report-Msgid-Bugs-To:/d' >"$catalog.new"
  mv "$catalog.new" "$catalog"
  echo "$catalog: $(msgattrib --untranslated --no-obsolete "$catalog" | grep -c '^msgctxt' || true) untranslated"
done
