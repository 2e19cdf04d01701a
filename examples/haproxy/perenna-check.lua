-- The question that HAProxy asks about each request: the action "lua.perenna_check" of an http-request rule. It sets
-- txn.perenna_status to the host's status, and user, groups and what a refusal tells the client beside it. When anything
-- goes wrong the status is 0 or not set at all: a configuration must let through with 200 alone.

-- Where perenna-access serves; "unix@/run/perenna-access/host.sock" for a service.
local HOST = "unix@host.sock"
local TIMEOUT_MILLISECONDS = 12000

-- All values of a request's field, as a list; doubled credentials are for the host to refuse.
local function values(fields, name)
  local list = {}
  for index = 0, #(fields[name] or {}) do
    list[#list + 1] = fields[name] and fields[name][index]
  end
  return list
end

core.register_action("perenna_check", {"http-req"}, function(txn)
  local fields = txn.http:req_get_headers()
  local question = {
    ["host"] = {"perenna-host"},
    ["x-original-method"] = {txn.sf:method()},
    ["x-original-uri"] = {txn.sf:url()},
    ["x-real-ip"] = {txn.sf:src()},
    ["x-request-id"] = values(fields, "x-request-id"),
    ["authorization"] = values(fields, "authorization"),
  }
  local certificate = txn.sf:ssl_c_der()
  if certificate ~= "" then
    question["x-client-certificate"] = {txn.c:base64(certificate)}
  end

  local answer = core.httpclient():get{
    url = "http://perenna-host/auth", dst = HOST, headers = question, timeout = TIMEOUT_MILLISECONDS}
  local told = answer.headers or {}
  local function tell(variable, name)
    if told[name] and told[name][0] then
      txn:set_var(variable, told[name][0])
    end
  end
  tell("txn.perenna_user", "remote-user")
  tell("txn.perenna_groups", "remote-groups")
  tell("txn.perenna_authenticate", "www-authenticate")
  tell("txn.perenna_retry_after", "retry-after")
  txn:set_var("txn.perenna_status", answer.status)
end)
