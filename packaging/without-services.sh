#!/usr/bin/env bash
# Runs a command that installs packages, as root. The web server that comes with them neither runs nor starts with the
# machine, unless it was there before: the tests start one of their own.
# usage: packaging/without-services.sh COMMAND...
set -euo pipefail
policy=/usr/sbin/policy-rc.d  # asked by packages before they start a service; 101 forbids it

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

had_nginx=false
is_installed nginx-common && had_nginx=true
if [ ! -e "$policy" ]; then
  trap 'rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod +x "$policy"
fi
"$@"
if ! $had_nginx && is_installed nginx-common && command -v systemctl >/dev/null; then
  systemctl --quiet disable nginx.service 2>/dev/null
fi
