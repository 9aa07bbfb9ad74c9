# The ground that scripts/figures and scripts/bench measure on: an /etc and a /srv of their own, and
# the trees there; sourced behind common.sh, inside a private mount namespace.
# shellcheck shell=bash

# shellcheck disable=SC2034  # for the scripts that source this
root=/srv/www/vhosts
shop=$root/example.test/subdomains/shop
# shellcheck disable=SC2034
common=(--subdomain-name=shop --vhost-name=example.test)

# make_private_host: an empty /srv, and an /etc with the accounts that the operations look up.
make_private_host() {
    mount -t tmpfs -o mode=0755 measuring /srv
    local etc
    etc=$(mktemp -d)
    cp -a /etc/nsswitch.conf /etc/ld.so.cache /etc/alternatives "$etc"
    mount -t tmpfs -o mode=0755 measuring /etc
    mv "$etc"/* /etc
    rmdir "$etc"
    printf '%s:x:%d:%d::/:/bin/sh\n' root 0 0 site 1001 1001 other 1002 1001 >/etc/passwd
    printf 'root:x:0:\nkvoserv:x:2001:\nkvocln:x:2002:\n' >/etc/group
    mkdir /etc/kvo
    : >/etc/kvo/kvo.conf
}

# make_domain: the domain, without a subdomain, and an empty skeleton.
make_domain() {
    mkdir -p "$root/.skel/0" "$root/example.test/subdomains"
}

# make_site: a site that holds nothing yet but what every site has, and an empty "tree".
make_site() {
    mkdir -p "$shop/conf" "$shop/error_docs" "$shop/tree"
}

# fill_tree TOP DIRECTORIES FILES [TEXT]: so many directories of so many files each, with the text.
fill_tree() {
    perl -e '
        my ($top, $directories, $files, $text) = (@ARGV, "");
        for my $directory (map { "$top/directory $_" } 1 .. $directories) {
            mkdir $directory or die "$directory: $!";
            for my $name (map { "$directory/file $_" } 1 .. $files) {
                open my $file, ">", $name or die "$name: $!";
                print $file $text and close $file or die "$name: $!";
            }
        }' -- "$@"
}

# deep LEVELS: a site that is one chain of directories
deep() {
    make_site
    perl -e 'chdir shift; for (1 .. shift) { mkdir "d" or die; chdir "d" or die }' "$shop/tree" "$1"
}

# trace_of FILE COMMAND...: the system calls of a command, one a line of the file. Ends the script, or
# the subshell that it is called in, if the command fails: one that did nothing makes few calls.
trace_of() {
    local trace=$1
    shift
    strace -f -o "$trace" "$@" >/dev/null 2>&1 || die "this fails under strace: $*"
}

# The number of system calls of a command. They are counted in the trace because strace's own sum
# leaves out calls that are newer than it is. A call that another process interrupts in the trace
# has two lines there.
calls_of() {
    local trace
    trace=$(mktemp)
    trace_of "$trace" "$@"
    grep -cvE '^[0-9]+ +(\+\+\+|---|<\.\.\. )' "$trace"
    rm -f "$trace"
}

# check VALUE LIMIT WHAT: counts a value above its limit in "failures", and says so.
failures=0
check() {
    if awk -v value="$1" -v limit="$2" 'BEGIN { exit !(value > limit) }'; then
        echo "ABOVE ITS BOUND: $3 is $1, more than $2" >&2
        failures=$((failures + 1))
    fi
}
