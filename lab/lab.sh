# The WPAD network lab, sourced by the lab scripts.
#
# Two network namespaces of this run only, joined by a veth pair and
# attached to nothing else:
#   client  10.77.0.2  the library under Wine (its own prefix and
#                      wineserver), host names pc7 and others from its own
#                      UTS namespace, hosts and resolv.conf of its own
#   server  10.77.0.1  dnsmasq (DNS for the wpad names; DHCP answering
#                      DHCPINFORM with option 252), an HTTP server for the
#                      wpad.dat scripts, the programmable DHCP responder
# Nothing is routed out of the pair, so no broadcast or look-up can leave.
#
# Use: LAB_BUILD=<build tree>; . lab/lab.sh; lab_up; ...; lab_down
# lab_up installs lab_down as the EXIT trap; lab_down is idempotent.

LAB_SOURCE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
LAB_SERVER_IP=10.77.0.1
LAB_CLIENT_IP=10.77.0.2
LAB_DOMAIN=sales.corp.example
LAB_DHCP_URL="http://wpadhost.$LAB_DOMAIN/dhcp-wpad.dat"

lab_log() { printf '[lab] %s\n' "$*" >&2; }
lab_fail() { lab_log "FAILED: $*"; exit 1; }

lab_cache_value() {
  sed -n "s/^$1:[A-Z]*=//p" "$LAB_BUILD/CMakeCache.txt" | head -n 1
}

lab_init() {
  [ -n "${LAB_BUILD:-}" ] || lab_fail "LAB_BUILD is not set"
  [ "$(id -u)" = 0 ] || lab_fail "the lab needs root (network namespaces)"
  command -v ip >/dev/null || lab_fail "ip (iproute2) is missing"
  [ -x /usr/sbin/dnsmasq ] || lab_fail "dnsmasq is missing"
  LAB_PYTHON=$(command -v python3) || lab_fail "python3 is missing"
  LAB_WINE=$(lab_cache_value WINE_BINARY)
  LAB_WINESERVER=$(lab_cache_value WINESERVER_BINARY)
  [ -x "$LAB_WINE" ] && [ -x "$LAB_WINESERVER" ] || lab_fail "wine is not configured in $LAB_BUILD"
  # A suffix of this run in every name, so that two runs never meet.
  LAB_ID=$(printf '%05d%04x' "$(( $$ % 100000 ))" "$RANDOM")
  LAB_CNS=rvc-$LAB_ID
  LAB_SNS=rvs-$LAB_ID
  LAB_CIF=rvc$LAB_ID
  LAB_SIF=rvs$LAB_ID
  LAB_DIR=$(mktemp -d "${TMPDIR:-/tmp}/routvane-lab.$LAB_ID.XXXXXX")
  LAB_PREFIX=$LAB_DIR/wineprefix
  : >"$LAB_DIR/pids"
}

# Runs a command in the server namespace in the background; remembers it.
lab_server_start() {
  local name=$1
  shift
  ip netns exec "$LAB_SNS" "$@" >"$LAB_DIR/$name.out" 2>&1 &
  echo "$! $name" >>"$LAB_DIR/pids"
}

lab_server_stop() {
  local name=$1 pid n
  while read -r pid n; do
    [ "$n" = "$name" ] || continue
    kill "$pid" 2>/dev/null || true
    lab_wait_gone "$pid"
  done <"$LAB_DIR/pids"
  grep -v " $name\$" "$LAB_DIR/pids" >"$LAB_DIR/pids.new" || true
  mv "$LAB_DIR/pids.new" "$LAB_DIR/pids"
}

# Waits (bounded) until a process has gone; KILL after five seconds.
lab_wait_gone() {
  local pid=$1 i
  for i in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -KILL "$pid" 2>/dev/null || true
}

# Polls (bounded) until a socket of the given protocol (-u or -t) listens
# on the port in the namespace.
lab_wait_port() {
  local ns=$1 proto=$2 port=$3 i
  for i in $(seq 100); do
    if ip netns exec "$ns" ss -Hln "$proto" "sport = :$port" | grep -q .; then return 0; fi
    sleep 0.1
  done
  lab_fail "nothing listens on port $port ($proto) in $ns"
}

lab_up() {
  lab_init
  trap lab_down EXIT
  trap 'exit 130' INT TERM
  lab_log "run $LAB_ID in $LAB_DIR"

  ip netns add "$LAB_CNS" || lab_fail "ip netns add (root and CAP_SYS_ADMIN are needed)"
  ip netns add "$LAB_SNS" || lab_fail "ip netns add"
  ip link add "$LAB_CIF" netns "$LAB_CNS" type veth peer name "$LAB_SIF" netns "$LAB_SNS" ||
    lab_fail "veth pair"
  ip -n "$LAB_CNS" link set lo up
  ip -n "$LAB_SNS" link set lo up
  ip -n "$LAB_CNS" addr add "$LAB_CLIENT_IP/24" brd + dev "$LAB_CIF"
  ip -n "$LAB_SNS" addr add "$LAB_SERVER_IP/24" brd + dev "$LAB_SIF"
  ip -n "$LAB_CNS" link set "$LAB_CIF" up
  ip -n "$LAB_SNS" link set "$LAB_SIF" up
  # The client's hardware address (hex digits only), which its DHCPINFORM
  # must carry.
  LAB_CLIENT_MAC=$(ip -n "$LAB_CNS" link show dev "$LAB_CIF" |
    awk '/link\/ether/ { gsub(":", "", $2); print $2 }')
  # Every destination of the client leads to the server namespace, which
  # forwards nothing: the route chooses the veth interface, and no packet
  # has anywhere else to go.
  ip -n "$LAB_CNS" route add default via "$LAB_SERVER_IP" dev "$LAB_CIF"
  ip netns exec "$LAB_SNS" sysctl -qw net.ipv4.ip_forward=0
  ip netns exec "$LAB_CNS" sysctl -qw net.ipv4.ip_forward=0

  # The client's own names: ip netns exec binds these over /etc/hosts and
  # /etc/resolv.conf for processes of the client namespace.
  mkdir -p "/etc/netns/$LAB_CNS"
  cat >"/etc/netns/$LAB_CNS/hosts" <<EOF
127.0.0.1 localhost
$LAB_CLIENT_IP pc7.$LAB_DOMAIN pc7
$LAB_CLIENT_IP pc8.example pc8
$LAB_CLIENT_IP pc9
$LAB_CLIENT_IP pc6.example. pc6
$LAB_CLIENT_IP pc5.example.co.uk pc5
EOF
  printf 'nameserver %s\noptions timeout:1 attempts:1\n' "$LAB_SERVER_IP" \
    >"/etc/netns/$LAB_CNS/resolv.conf"

  lab_make_prefix
  lab_start_dns
  lab_start_http
}

# The client's Wine prefix: the build tree's prefix with its system files
# shared by hard links and its registry copied, or a new one.
lab_make_prefix() {
  local template=$LAB_BUILD/wineprefix
  if [ -f "$template/system.reg" ] && [ -d "$template/drive_c" ]; then
    cp -al "$template" "$LAB_PREFIX"
    rm -f "$LAB_PREFIX/wineserver"
    local f
    for f in "$LAB_PREFIX"/*.reg; do
      cp --remove-destination "$template/$(basename "$f")" "$f"
    done
  else
    mkdir -p "$LAB_PREFIX"
  fi
  lab_wineserver_up
  if [ ! -f "$LAB_PREFIX/system.reg" ]; then
    lab_client pc7 wineboot -i >/dev/null 2>&1 || lab_fail "wineboot"
  fi
}

lab_wine_env() {
  env WINEPREFIX="$LAB_PREFIX" WINEARCH=win64 WINEDEBUG=-all \
    WINEDLLOVERRIDES="mscoree,mshtml=" WINESERVER="$LAB_WINESERVER" "$@"
}

# The wineserver creates the sockets of Windows programs, so it must live in
# the client namespace.
lab_wineserver_up() {
  ip netns exec "$LAB_CNS" env WINEPREFIX="$LAB_PREFIX" "$LAB_WINESERVER" -p ||
    lab_fail "wineserver"
}

# Runs a Windows program (or a Wine tool) in the client namespace under the
# given host name.
lab_client() {
  local host=$1
  shift
  # Written through /proc, which takes any name the kernel holds (a
  # trailing dot included).
  ip netns exec "$LAB_CNS" unshare --uts \
    sh -c 'printf %s "$1" >/proc/sys/kernel/hostname && shift && exec "$@"' sh "$host" \
    env ROUTVANE_LAB_DIR="$LAB_DIR" ROUTVANE_LAB_SERVER="$LAB_SERVER_IP" \
    ROUTVANE_LAB_CLIENT="$LAB_CLIENT_IP" ROUTVANE_LAB_CLIENT_MAC="${LAB_CLIENT_MAC:-}" \
    ROUTVANE_LAB_DHCP_URL="$LAB_DHCP_URL" \
    WINEPREFIX="$LAB_PREFIX" WINEARCH=win64 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" \
    WINESERVER="$LAB_WINESERVER" "$LAB_WINE" "$@"
}

# DNS for the wpad names of the lab domain only: no upstream server, no
# look-up of anything else leaves dnsmasq.
lab_start_dns() {
  cat >"$LAB_DIR/dns-hosts" <<EOF
$LAB_SERVER_IP wpad.$LAB_DOMAIN
$LAB_SERVER_IP wpadhost.$LAB_DOMAIN
EOF
  cat >"$LAB_DIR/dnsmasq-dns.conf" <<EOF
port=53
listen-address=$LAB_SERVER_IP
bind-interfaces
no-resolv
no-poll
no-hosts
addn-hosts=$LAB_DIR/dns-hosts
local=/example/
log-queries
log-facility=$LAB_DIR/dnsmasq-dns.log
pid-file=
user=root
EOF
  lab_server_start dnsmasq-dns /usr/sbin/dnsmasq --keep-in-foreground \
    --conf-file="$LAB_DIR/dnsmasq-dns.conf"
  lab_wait_port "$LAB_SNS" -u 53
}

lab_start_http() {
  mkdir -p "$LAB_DIR/www"
  cat >"$LAB_DIR/www/wpad.dat" <<'EOF'
function FindProxyForURL(url, host) {
  return host == "empty.example" ? "" : "PROXY proxy.sales.corp.example:3128";
}
EOF
  cat >"$LAB_DIR/www/dhcp-wpad.dat" <<'EOF'
function FindProxyForURL(url, host) { return "DIRECT"; }
EOF
  lab_server_start http "$LAB_PYTHON" -m http.server 80 --bind "$LAB_SERVER_IP" \
    --directory "$LAB_DIR/www"
  lab_wait_port "$LAB_SNS" -t 80
}

# The real DHCP server: answers DHCPINFORM from the lab subnet with option
# 252 (it offers no leases of its own use here).
lab_start_dhcp() {
  cat >"$LAB_DIR/dnsmasq-dhcp.conf" <<EOF
port=0
interface=$LAB_SIF
bind-interfaces
dhcp-range=10.77.0.100,10.77.0.150,255.255.255.0,1h
dhcp-authoritative
dhcp-option=252,"$LAB_DHCP_URL"
dhcp-leasefile=$LAB_DIR/dnsmasq.leases
log-dhcp
log-facility=$LAB_DIR/dnsmasq-dhcp.log
pid-file=
user=root
EOF
  lab_server_start dnsmasq-dhcp /usr/sbin/dnsmasq --keep-in-foreground \
    --conf-file="$LAB_DIR/dnsmasq-dhcp.conf"
  lab_wait_port "$LAB_SNS" -u 67
}

lab_stop_dhcp() { lab_server_stop dnsmasq-dhcp; }

# The programmable responder for replies a real server does not send; its
# behaviour is read from $LAB_DIR/responder.mode at every request.
lab_start_responder() {
  : >"$LAB_DIR/responder.log"
  echo silent >"$LAB_DIR/responder.mode"
  lab_server_start responder "$LAB_PYTHON" "$LAB_SOURCE/responder.py" "$LAB_DIR" "$LAB_DHCP_URL"
  lab_wait_port "$LAB_SNS" -u 67
}

lab_stop_responder() { lab_server_stop responder; }

lab_down() {
  local rc=$?
  trap - EXIT
  [ -n "${LAB_DIR:-}" ] || return "$rc"
  if [ -f "$LAB_DIR/pids" ]; then
    local pid name
    while read -r pid name; do
      kill "$pid" 2>/dev/null || true
      lab_wait_gone "$pid"
    done <"$LAB_DIR/pids"
    : >"$LAB_DIR/pids"
  fi
  if [ -n "${LAB_CNS:-}" ] && ip netns list | grep -qw "$LAB_CNS"; then
    ip netns exec "$LAB_CNS" env WINEPREFIX="$LAB_PREFIX" "$LAB_WINESERVER" -k 2>/dev/null || true
  fi
  local ns p
  for ns in ${LAB_CNS:-} ${LAB_SNS:-}; do
    ip netns list | grep -qw "$ns" || continue
    # Whatever is left in the namespaces was started by this run.
    for p in $(ip netns pids "$ns" 2>/dev/null); do kill "$p" 2>/dev/null || true; done
    for p in $(ip netns pids "$ns" 2>/dev/null); do lab_wait_gone "$p"; done
    ip netns del "$ns" 2>/dev/null || true
  done
  [ -n "${LAB_CNS:-}" ] && rm -rf "/etc/netns/$LAB_CNS"
  if [ -z "${LAB_KEEP:-}" ]; then rm -rf "$LAB_DIR"; else lab_log "kept $LAB_DIR"; fi
  LAB_DIR=
  return "$rc"
}
