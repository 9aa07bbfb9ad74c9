# The private host on which the demo runs; sourced by demo-tour inside mounts of its own.
# shellcheck shell=bash

# shellcheck disable=SC2034  # for the script that sources this
vhosts=/srv/www/vhosts

# make_private_host STAGE TWIGCTL SKELETON: puts a small /etc and /srv over the machine's own, for
# this mount namespace only. STAGE is an empty directory; it also holds the program and the demo's
# notes, so that nothing is needed any more from what the new /etc and /srv hide.
make_private_host() {
    local stage=$1 twigctl=$2 skeleton=$3
    mount -t tmpfs -o mode=0755 twigctl-demo "$stage"
    umask 022
    mkdir "$stage"/{bin,etc,notes,srv}
    cp "$twigctl" "$stage/bin/twigctl"
    fill_etc "$stage/etc"
    fill_srv "$stage/srv" "$skeleton"
    mount --bind "$stage/srv" /srv
    mount --bind "$stage/etc" /etc
}

fill_etc() {
    mkdir "$1/kvo"
    cp /etc/ld.so.cache "$1/"
    cat >"$1/nsswitch.conf" <<'FILE'
passwd: files
group: files
FILE
    cat >"$1/passwd" <<'FILE'
root:x:0:0:root:/root:/bin/sh
anna:x:1001:100:owner of the site:/srv/www/vhosts/example.test:/bin/sh
ben:x:1002:100:the next owner:/srv/www/vhosts/example.test:/bin/sh
FILE
    cat >"$1/group" <<'FILE'
root:x:0:
users:x:100:
kvoserv:x:2001:
kvocln:x:2002:
FILE
}

# The modes are set here because a checkout keeps only the executable bit, and that not always.
fill_srv() {
    local root=$1/www/vhosts
    mkdir -p "$root/example.test/subdomains" "$root/.skel/0"
    cp -R "$2/." "$root/.skel/0/"
    chown -R root:root "$root/.skel"
    find "$root/.skel" -type d -exec chmod 0755 {} +
    find "$root/.skel" -type f -exec chmod 0644 {} +
    chmod 0755 "$root"/.skel/0/cgi-bin/*.cgi
    chmod 1733 "$root/.skel/0/anon_ftp/incoming"
}
