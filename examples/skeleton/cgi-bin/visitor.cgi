#!/bin/sh
# Tells visitors in plain text what the web server knows about their request. Plain text needs no
# escaping; a program that prints a page must escape everything that came from outside.

printf 'Content-Type: text/plain; charset=utf-8\r\n'
printf 'X-Content-Type-Options: nosniff\r\n'
printf '\r\n'
printf 'site:     %s\n' '@domain_name@'
printf 'method:   %s\n' "${REQUEST_METHOD:-unknown}"
printf 'address:  %s\n' "${REMOTE_ADDR:-unknown}"
printf 'protocol: %s\n' "${SERVER_PROTOCOL:-unknown}"
