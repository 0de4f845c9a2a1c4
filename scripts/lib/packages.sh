# ensure_packages PACKAGE...: installs the Debian packages that are missing
# (apt-get, as root); fails with the list when they are missing and this is
# not root.
ensure_packages() {
  local missing=() package
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
      missing+=("$package")
    fi
  done
  ((${#missing[@]})) || return 0
  echo "== installing: ${missing[*]}"
  if [[ $(id -u) -ne 0 ]]; then
    echo "error: these packages are missing and installing them needs root: ${missing[*]}" >&2
    return 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
