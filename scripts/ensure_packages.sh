# Sourced by the project's scripts: ensure_packages PKG... installs the Debian
# packages that are missing (apt-get update first; as root or through sudo).
ensure_packages() {
  local missing=() p sudo=""
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
  done
  ((${#missing[@]})) || return 0
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
}
