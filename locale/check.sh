#!/usr/bin/env bash
# Compares the catalogs with the tool's sources: every message is translated in each, for good, with the same format
# directives, and the list of languages names catalogs that are there.
# usage: locale/check.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
./messages.sh >"$work/messages.pot"
[ "$(grep -c '^msgctxt' "$work/messages.pot")" -gt 100 ] || { echo "check: the sources' messages were not found" >&2; exit 1; }
result=0
for catalog in *.po; do
  # The sources say which texts are formats.
  msgmerge --quiet --no-fuzzy-matching "$catalog" "$work/messages.pot" | msgfmt --check -o "$work/compiled.mo" - || result=1
  # Both ways: nothing is missing, nothing is left over.
  msgcmp "$catalog" "$work/messages.pot" || result=1
  msgcmp --use-untranslated "$work/messages.pot" "$catalog" || result=1
  unfinished=$(msgattrib --untranslated "$catalog"; msgattrib --only-fuzzy "$catalog")
  [ -z "$unfinished" ] || { printf 'check: %s is not finished:\n%s\n' "$catalog" "$unfinished" >&2; result=1; }
done
while IFS=: read -r number _ code; do
  language=${code%%_*}
  case $code in *@*) language=$language@${code#*@} ;; esac
  case $number:$language in 0:* | *:en) continue ;; esac
  [ -f "$language.po" ] || { echo "check: there is no catalog for $code" >&2; result=1; }
done < <(grep -v '^#' languages)
exit $result
