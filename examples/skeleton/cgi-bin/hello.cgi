#!/bin/sh
# Greets a visitor. A CGI program prints a header, an empty line and the page.

cat <<PAGE
Content-Type: text/html; charset=utf-8
Cache-Control: no-store

<!DOCTYPE html>
<html lang="en">
<head>
  <meta charset="utf-8">
  <title>Hello from @domain_name@</title>
  <link rel="stylesheet" href="/css/site.css">
</head>
<body>
  <main>
    <h1>Hello from @domain_name@</h1>
    <p>The web server ran this program on $(date -u '+%Y-%m-%d at %H:%M:%S UTC').</p>
    <p><a href="/">Back to the first page</a></p>
  </main>
</body>
</html>
PAGE
