#!/usr/bin/env bash
# Fetches Debian packages of another release or architecture and unpacks
# them into a directory, without installing anything on this machine: apt
# runs with a private configuration (sources, package lists, cache and an
# empty dpkg status) kept under WORK, so the system's own package state is
# never read or changed. The archive is the one this machine's apt sources
# already use; DEBIAN_ARCHIVE and DEBIAN_SECURITY_ARCHIVE override it.
#
#   debian-fetch.sh WORK DEST ARCH SUITE PACKAGE...
#
# SUITE is a release name (bookworm, bullseye); its -updates and -security
# suites are used too. A second run with the same arguments downloads
# nothing: the packages stay in WORK/debs, DEST is rebuilt from them.
set -euo pipefail

[ $# -ge 5 ] || { echo "usage: $0 WORK DEST ARCH SUITE PACKAGE..." >&2; exit 2; }
work=$(realpath -m "$1") dest=$(realpath -m "$2") arch=$3 suite=$4
shift 4
packages=("$@")
keyring=/usr/share/keyrings/debian-archive-keyring.gpg

# The URIs of this machine's apt sources, one-line and deb822 forms alike.
source_uris() {
  {
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
      awk '$1 == "deb" { for (i = 2; i <= NF; i++) if ($i ~ /^[a-z]+:\/\//) { print $i; break } }'
    cat /etc/apt/sources.list.d/*.sources 2>/dev/null |
      awk 'tolower($1) == "uris:" { for (i = 2; i <= NF; i++) print $i }'
  } | sed 's:/*$::'
}
archive=${DEBIAN_ARCHIVE:-$(source_uris | grep -E '/debian$' | head -n 1 || true)}
security=${DEBIAN_SECURITY_ARCHIVE:-$(source_uris | grep -E '/debian-security$' | head -n 1 || true)}
if [ -z "$archive" ]; then
  echo "debian-fetch: no Debian archive in this machine's apt sources; set DEBIAN_ARCHIVE" >&2
  exit 1
fi

stamp="$work/debs/.fetched"
wanted="$arch $suite ${packages[*]}"
if [ ! -f "$stamp" ] || [ "$(cat "$stamp")" != "$wanted" ]; then
  mkdir -p "$work"/{etc/preferences.d,etc/sources.list.d,state/lists/partial,cache/archives/partial,debs}
  : >"$work/state/status"
  {
    echo "deb [arch=$arch signed-by=$keyring] $archive $suite main"
    echo "deb [arch=$arch signed-by=$keyring] $archive $suite-updates main"
    if [ -n "$security" ]; then
      echo "deb [arch=$arch signed-by=$keyring] $security $suite-security main"
    fi
  } >"$work/etc/sources.list"
  cat >"$work/etc/apt.conf" <<EOF
Dir::Etc::SourceList "$work/etc/sources.list";
Dir::Etc::SourceParts "$work/etc/sources.list.d";
Dir::Etc::Preferences "$work/etc/preferences";
Dir::Etc::PreferencesParts "$work/etc/preferences.d";
Dir::State "$work/state";
Dir::State::status "$work/state/status";
Dir::Cache "$work/cache";
APT::Architecture "$arch";
APT::Architectures { "$arch"; };
Acquire::Languages "none";
APT::Sandbox::User "root";
EOF
  export APT_CONFIG="$work/etc/apt.conf"
  echo "debian-fetch: package lists of $suite ($arch)"
  # An archive caught in the middle of a mirror sync answers with index
  # files that do not match their release file. The security suite only
  # adds newer builds, so the release itself is used when it stays so.
  if ! apt-get update -qq -o Acquire::Retries=3; then
    sleep 10
    if ! apt-get update -qq -o Acquire::Retries=3; then
      echo "debian-fetch: security suite unavailable; using $suite and $suite-updates" >&2
      sed -i '/-security /d' "$work/etc/sources.list"
      apt-get update -qq -o Acquire::Retries=3
    fi
  fi
  rm -f "$work"/debs/*.deb
  (cd "$work/debs" && apt-get download -qq "${packages[@]}")
  echo "$wanted" >"$stamp"
fi

rm -rf "$dest"
mkdir -p "$dest"
for deb in "$work"/debs/*.deb; do
  dpkg-deb -x "$deb" "$dest"
done
# Absolute links would point into this machine's own file system.
find "$dest" -type l -lname '/*' | while read -r link; do
  target=$(readlink "$link")
  ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$dest$target")" "$link"
done
echo "debian-fetch: ${#packages[@]} packages of $suite ($arch) in $dest"
