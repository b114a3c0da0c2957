#!/bin/bash
# node's express and http-server: ranges. Run by ./test --long node, which installs them in NODE_MODULES.
. tests/products/servers/common.sh

make_media "$www/media.ts" 20000000
express=$(free_port)
cat >"$folder/express.js" <<CODE
const express = require("$NODE_MODULES/express");
const application = express();
application.use(express.static("$www"));
application.listen($express, "127.0.0.1");
CODE
start_express() { serve "$express" node "$folder/express.js"; }
start_express
url=http://127.0.0.1:$express
same "$url/media.ts" "$www/media.ts"
seeks "$url/media.ts" 200
tells "$url/media.ts" size 20000000
part "$url/media.ts" "$www/media.ts" 19999990 100
plays "$url/media.ts" "$www/media.ts"
fails 1 "the server answered 404" "$fluvia" cat "$url/none.ts"
restarted "$url/media.ts" "$www/media.ts" start_express

files=$(free_port)
start_files() { serve "$files" "$NODE_MODULES/.bin/http-server" "$www" -a 127.0.0.1 -p "$files" -s; }
start_files
url=http://127.0.0.1:$files
same "$url/media.ts" "$www/media.ts"
seeks "$url/media.ts" 200
tells "$url/media.ts" size 20000000
part "$url/media.ts" "$www/media.ts" 19999990 100
plays "$url/media.ts" "$www/media.ts"
fails 1 "the server answered 404" "$fluvia" cat "$url/none.ts"
restarted "$url/media.ts" "$www/media.ts" start_files
