# Sourced by the scripts of this folder.
#
#   install_packages LOG PACKAGE...
#
# Installs those of the Debian packages named that are missing, writing
# apt-get's output to LOG. Without root, it names the missing packages and
# fails.
install_packages() {
  local log=$1 package missing=()
  shift
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages (run as root to install them): ${missing[*]}" >&2
    return 1
  fi
  echo "installing: ${missing[*]}" >&2
  mkdir -p "$(dirname "$log")"
  DEBIAN_FRONTEND=noninteractive apt-get update -qq >"$log" 2>&1 &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >>"$log" 2>&1 || {
      tail -20 "$log" >&2
      return 1
    }
}
