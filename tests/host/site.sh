#!/bin/sh
# The host behind a real proxy, with the example configuration as it stands, on free ports.
#   site.sh EXAMPLES PROXY DIRECTORY-OF-PERENNA-ACCESS
set -eu
examples=$1
proxy=$2
PATH=$3:$PATH:/usr/sbin
export PATH
command -v "$proxy" >/dev/null || { echo "there is no $proxy"; exit 77; }
free_port='import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
PERENNA_HTTP_PORT=$(python3 -c "$free_port")
PERENNA_HTTPS_PORT=$(python3 -c "$free_port")
export PERENNA_HTTP_PORT PERENNA_HTTPS_PORT
# What a client sees while there is no host.
case $proxy in nginx) away=500 ;; caddy) away=502 ;; haproxy) away=503 ;; esac
work=$(mktemp -d)
chmod 755 "$work"
site=$work/site
trap '"$examples/stop-site" "$site" 2>/dev/null; rm -rf "$work"' EXIT
fail() { printf '%s\n' "$@"; tail -n 20 "$site/site.log" "$site/error.log" "$site/decisions.log" 2>/dev/null; exit 1; }

"$examples/start-site" "$proxy" "$site" || fail "the site does not start"
cd "$site"
. ./addresses

# What the tour shows, by request, status and the beginning of the reason; asked twice behind one, so from the cache too.
cat >expected <<'END'
alice GET /articles/7|200|allowed by Allow of group "readers"
alice GET /articles/7?page=2|200|allowed by Allow of group "readers"
alice PUT /articles/7|200|allowed by Allow of group "writers"
alice GET /articles/drafts/7|403|refused by Deny of group "readers"
alice DELETE /articles/7|403|refused by default
GET /articles/7 without credentials|401|refused: there are no credentials
alice GET /articles/7, wrong password|401|refused: unknown user or wrong password
bob GET /articles/7, client certificate|200|allowed by Allow of group "readers"
a certificate that nobody has|401|refused: no user is registered for the certificate
alice OPTIONS /articles/7|200|allowed by Allow of group "readers"
alice, Remote-User: admin|200|allowed by Allow of group "readers"
alice, X_Original_URI: /articles/7|403|refused by default
alice GET /articles/../secret|403|refused: the target is not in normal form
alice GET /articles/%2e%2e/secret|403|refused: the target is not in normal form
END
[ "$proxy" = nginx ] && rounds='1 2' || rounds=1
for _ in $rounds; do
  "$examples/tour" . | sed 's/  *\([0-9][0-9][0-9]\)  /|\1|/' >shown
  paste -d '\n' expected shown | while read -r wanted && read -r got; do
    case $got in "$wanted"*) ;; *) fail "wanted: $wanted" "got:    $got" ;; esac
  done || exit 1
done

# status ARGUMENTS...: of one request of alice's; its body goes to the file "body".
status() { curl -sk --path-as-is -o body -w '%{http_code}' -u 'alice:correct horse' "$@" || true; }
expect() { # STATUS WHAT ARGUMENTS...
  wanted=$1 what=$2
  shift 2
  got=$(status "$@")
  [ "$got" = "$wanted" ] || fail "$what: $got instead of $wanted"
}

# Whose request it is says the host alone, and what it says reaches the application.
expect 200 'spoofed user' -H 'Remote-User: admin' -H 'Remote-User: root' -H 'Remote-Groups: administrators' $http/articles/7
grep -q "for 'alice' of 'readers,writers'" body || fail "the application was told: $(cat body)"
expect 200 'a user named in Connection' -H 'Connection: Remote-User, Remote-Groups' $http/articles/7
grep -q "for 'alice' of 'readers,writers'" body || fail "Connection took away: $(cat body)"
right="Authorization: Basic $(printf 'alice:correct horse' | base64)" wrong='Authorization: Basic YWRtaW46'
for first in "$right" "$wrong"; do
  case $(status -H "$first" -H "$right" $http/articles/7) in 400 | 401) ;; *) fail "credentials twice are taken" ;; esac
done
expect 200 'an absolute target' --proxy $http http://site/articles/7
grep -q "GET /articles/7 for" body || fail "an absolute target became: $(cat body)"
expect 403 'an absolute target' --proxy $http http://site/secret

# No spelling gets more than the plain request, which is refused by a Deny or by default.
for target in /articles/./drafts/7 /articles//drafts/7 //articles/drafts/7 /articles/x/../drafts/7 /articles/%2E%2E/secret \
  /articles/%2e/drafts/7 /articles%2Fdrafts/7 /articles/drafts%2F7 /articles/%64rafts/7 '/articles/drafts;x/7' '/articles;/../secret' \
  /articles/%2564rafts/7 /articles%5C..%5Csecret '/articles/..\secret' /articles/drafts/7%00 /articles/drafts/%40 \
  '/articles/drafts/7?page=2' /articles/drafts/ /articles/drafts /articlesX /ARTICLES/7 /secret /secret?/articles/7; do
  case $(status $http"$target") in 400 | 403) ;; *) fail "$target is let through: $(cat body)" ;; esac
done
for method in get POST PROPFIND TRACE; do
  case $(status -X $method $http/articles/7) in 400 | 403 | 405) ;; *) fail "method $method is let through" ;; esac
done
for field in 'X-Original-URI: /articles/7' 'X-Original-Method: PUT' 'X.Original.URI: /articles/7' 'x-pn-SelfCallbackId: 1' \
  'Connection: X-Original-URI' 'X-Client-Certificate: x' 'X-Forwarded-Uri: /articles/7' 'X-HTTP-Method-Override: GET'; do
  case $(status -H "$field" $http/secret) in 400 | 401 | 403) ;; *) fail "$field opens /secret" ;; esac
done
# No refusal becomes a failure of the proxy, whatever the question looks like.
expect 403 'more fields than the host takes' -H "X-Long: $(printf '%07000d' 0)" -H 'X_Forwarded_Uri: /' $http/secret

# The administrator's changes count at once; a body is not lost.
perenna-access --config host.json filter add writers Allow POST '^/articles$' >>site.log
expect 200 'a new filter' -d 'a body' $http/articles
perenna-access --config host.json user set-groups alice writers >>site.log
expect 403 'a lost group' $http/articles/7

# Killed: nothing committed is lost, and the left-over socket does not stop the next start.
kill -9 "$(cat host.pid)"
expect $away 'without a host' $http/articles
sed -i 's#"DatabaseFilename"#"PathFilterBypass": "^/public/", &#' host.json
perenna-access --config host.json serve 2>>site.log &
host=$!
echo $host >host.pid
for _ in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do
  [ "$(status -d x $http/articles)" != 200 ] || break
  sleep 0.2
done
expect 200 'after a kill' -d x $http/articles

# Allowed without a user: the application is told that there is none, not what the client says.
expect 200 'a public path' -H 'Remote-User: admin' -H 'Remote-Groups: administrators' $http/public/logo
grep -q "for '' of ''" body || fail "nobody became: $(cat body)"

[ "$proxy" = nginx ] || exit 0 # the rest is the host's own, whoever stands before it

# SIGHUP opens the logs anew.
mv decisions.log decisions.log.1
kill -HUP $host
sleep 0.3
expect 200 'after SIGHUP' -d x $http/articles
sleep 0.3
grep -q '"outcome":"allowed"' decisions.log || fail "the log was not opened anew"
grep -q 'correct horse' ./*.log* && fail "a password stands in a log"

# A replaced file: no answer from the old one, and an end that asks for a new start.
perenna-access --config host.json backup copy.db >>site.log
mv copy.db access.db
expect $away 'a replaced file' -d x $http/articles
ended=0
wait $host || ended=$?
[ "$ended" = 3 ] || fail "ended with $ended instead of 3 after the file was replaced"

perenna-access --config host.json serve 2>last.log &
host=$!
tries=100
until grep -q '^listening on' last.log; do
  tries=$((tries - 1))
  [ $tries -gt 0 ] || fail "does not start again: $(cat last.log)"
  sleep 0.1
done
kill $host
wait $host || fail "did not end with 0 after SIGTERM"

sed 's/"Listen"/"Lisen"/' host.json >wrong.json
ended=0
perenna-access --config wrong.json serve --check 2>why || ended=$?
[ "$ended" = 2 ] && grep -q 'Listen' why || fail "a wrong key: $ended, $(cat why)"
