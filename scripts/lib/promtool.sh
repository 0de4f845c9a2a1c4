# Sourced by the test command: puts promtool on PATH for the metrics tests.
# Debian's prometheus package holds it, but installing that package starts
# a Prometheus server (its postinst), which the tests do not want beside
# them: the package is downloaded instead and promtool alone taken out of
# it, into build/third_party/promtool (once; kept).
if ! command -v promtool >/dev/null; then
  promtool_dir=$PWD/build/third_party/promtool
  if [[ ! -x $promtool_dir/promtool ]]; then
    promtool_tmp=$(mktemp -d)
    if (cd "$promtool_tmp" && { apt-get download prometheus >/dev/null 2>&1 ||
          { apt-get update -qq && apt-get download prometheus >/dev/null 2>&1; }; }); then
      dpkg-deb -x "$promtool_tmp"/prometheus_*.deb "$promtool_tmp/root"
      mkdir -p "$promtool_dir"
      cp "$promtool_tmp/root/usr/bin/promtool" "$promtool_dir/"
    else
      echo "== promtool: the prometheus package could not be downloaded; the metrics tests check the format themselves" >&2
    fi
    rm -rf "$promtool_tmp"
  fi
  if [[ -x $promtool_dir/promtool ]]; then export PATH="$promtool_dir:$PATH"; fi
fi
