# Runs a command inside a stack-2 root file system (sourced by stack2.sh and
# with-stack2.sh):
#   stack2_chroot ROOTFS BIND_DIR... -- CMD...
# Each BIND_DIR (a host directory) appears at the same absolute path inside.
# Everything happens in a private mount and PID namespace: the mounts (proc,
# sys, dev, a private /tmp, the bind mounts) vanish when CMD ends, also on
# failure or kill, and every process started inside ends with it. Runs of
# their own never see each other's /tmp (X sockets, wineserver sockets).

stack2_enter() {  # runs as PID 1 of the new namespaces
  local rootfs=$1; shift
  local binds=()
  while [[ $1 != -- ]]; do binds+=("$1"); shift; done
  shift
  set -e
  mount -t proc proc "$rootfs/proc"
  mount -t sysfs sysfs "$rootfs/sys"
  mount --rbind /dev "$rootfs/dev"
  mount -t tmpfs -o mode=1777 tmpfs "$rootfs/tmp"
  local d
  for d in "${binds[@]}"; do
    [[ -d $d ]] || continue
    mkdir -p "$rootfs$d"
    mount --bind "$d" "$rootfs$d"
  done
  cp /etc/resolv.conf "$rootfs/etc/resolv.conf" 2>/dev/null || true
  exec chroot "$rootfs" "$@"
}

# The namespace's parent (unshare) ignores SIGTERM and SIGINT while it waits,
# and its PID-1 child takes from outside only the signals it handles: on
# either, the caller kills the parent, which takes down every process inside.
stack2_chroot() {
  unshare --mount --propagation private --pid --fork --kill-child -- \
    bash -c "$(declare -f stack2_enter); stack2_enter \"\$@\"" stack2 "$@" <&0 &
  local pid=$! rc=0
  trap "kill -KILL $pid 2>/dev/null; exit 130" INT
  trap "kill -KILL $pid 2>/dev/null; exit 143" TERM
  trap "kill -KILL $pid 2>/dev/null; exit 129" HUP
  wait "$pid" || rc=$?
  trap - INT TERM HUP
  return "$rc"
}
