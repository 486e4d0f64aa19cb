#!/usr/bin/env bash
# Prints the Debian mirror URI this machine's apt configuration uses (deb822
# sources first, then the one-line list), so that what we fetch comes from
# the same place as the machine's own packages.
set -euo pipefail
mirror=$(awk '/^URIs:/{print $2; exit}' /etc/apt/sources.list.d/*.sources 2>/dev/null || true)
if [[ -z $mirror ]]; then
  mirror=$(awk '$1=="deb"{for(i=2;i<=NF;i++) if($i ~ /^[a-z]+:\/\//){print $i; exit}}' /etc/apt/sources.list 2>/dev/null | head -n1)
fi
[[ -n $mirror ]] || { echo "no Debian mirror found in the apt configuration" >&2; exit 1; }
echo "$mirror"
