// /access/openapi.json: OpenAPI 3.1 of the administration, from the table that dispatches it.

#include "host/administration/Route.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Json;

namespace {

Json TypeOf(const Member& member) {
  const std::string_view type = member.type;
  if (type == "skip") {
    return {{"type", "integer"}, {"minimum", 0}};
  }
  if (type == "limit") {
    return {{"oneOf", Json::array({{{"type", "integer"}, {"minimum", 0}}, {{"const", "all"}}})}};
  }
  if (type == "array") {
    return {{"type", "array"}, {"items", {{"type", "string"}}}};
  }
  return {{"type", member.type}};
}

Json BodyOf(const Route& route) {
  Json schema;
  switch (route.form) {
  case BodyForm::None:
    return nullptr;
  case BodyForm::Object: {
    Json properties = Json::object();
    Json required = Json::array();
    for (const Member& member : route.members) {
      properties[member.name] = TypeOf(member);
      properties[member.name]["description"] = member.meaning;
      if (member.required) {
        required.push_back(member.name);
      }
    }
    schema = {{"type", "object"},
              {"properties", std::move(properties)},
              {"required", std::move(required)},
              {"additionalProperties", false}};
    break;
  }
  case BodyForm::Ids:
    schema = {{"type", "array"}, {"items", {{"type", "string"}}}};
    break;
  case BodyForm::Calls:
    schema = {
        {"type", "array"},
        {"maxItems", 100},
        {"items",
         {{"type", "object"},
          {"properties", {{"method", {{"type", "string"}}}, {"path", {{"type", "string"}}}, {"body", Json::object()}}},
          {"required", {"method", "path"}},
          {"additionalProperties", false}}}};
    break;
  case BodyForm::Directory:
    schema = {{"type", "object"}};
    break;
  }
  return {{"required", true}, {"content", {{"application/json", {{"schema", std::move(schema)}}}}}};
}

void AddParameters(const Route& route, Json& operation) {
  Json parameters = Json::array();
  const std::string_view path = route.path;
  for (std::size_t begin = path.find('{'); begin != std::string_view::npos; begin = path.find('{', begin + 1)) {
    parameters.push_back({{"name", std::string(path.substr(begin + 1, path.find('}', begin) - begin - 1))},
                          {"in", "path"},
                          {"required", true},
                          {"schema", {{"type", "string"}}}});
  }
  for (const Member& parameter : route.query) {
    parameters.push_back({{"name", parameter.name},
                          {"in", "query"},
                          {"required", parameter.required},
                          {"description", parameter.meaning},
                          {"schema", TypeOf(parameter)}});
  }
  if (route.if_match) {
    parameters.push_back(
        {{"name", "If-Match"}, {"in", "header"}, {"required", false}, {"schema", {{"type", "string"}}}});
  }
  if (!parameters.empty()) {
    operation["parameters"] = std::move(parameters);
  }
}

Json ResponsesOf(const Route& route) {
  Json responses = {{std::to_string(route.success), {{"description", StatusName(route.success)}}}};
  std::vector<unsigned> problems = {400, 401, 403, 429, 503};
  const std::string_view path = route.path;
  if (path.find('{') != std::string_view::npos || std::string_view(route.method) == "DELETE") {
    problems.push_back(404);
  }
  if (route.Changes()) {
    problems.push_back(409);
  }
  if (route.if_match) {
    problems.push_back(412);
  }
  if (route.form != BodyForm::None) {
    problems.insert(problems.end(), {413, 415});
  }
  for (const unsigned status : problems) {
    responses[std::to_string(status)] = {
        {"description", StatusName(status)},
        {"content", {{"application/problem+json", {{"schema", {{"$ref", "#/components/schemas/Problem"}}}}}}}};
  }
  return responses;
}

Json Lower(const char* method) {
  std::string name = method;
  for (char& letter : name) {
    letter = static_cast<char>(letter | 0x20);
  }
  return name;
}

} // namespace

Reply OpenApi(Call& /*call*/) {
  Json paths = Json::object();
  for (const Route& route : Routes()) {
    Json operation = {{"summary", route.summary}};
    AddParameters(route, operation);
    if (Json body = BodyOf(route); !body.is_null()) {
      operation["requestBody"] = std::move(body);
    }
    operation["responses"] = ResponsesOf(route);
    paths[route.path][Lower(route.method).get<std::string>()] = std::move(operation);
  }
  const Json text = {{"type", "string"}};
  const Json problem = {{"type", "object"},
                        {"properties",
                         {{"type", text},
                          {"title", text},
                          {"status", {{"type", "integer"}}},
                          {"detail", text},
                          {"instance", text},
                          {"code", text}}},
                        {"required", {"type", "title", "status", "detail", "instance"}}};
  return {200,
          {{"openapi", "3.1.0"},
           {"info", {{"title", "Perenna access administration"}, {"version", "1"}}},
           {"paths", std::move(paths)},
           {"components",
            {{"schemas", {{"Problem", problem}}},
             {"securitySchemes",
              {{"password", {{"type", "http"}, {"scheme", "basic"}}}, {"certificate", {{"type", "mutualTLS"}}}}}}},
           {"security", Json::array({{{"password", Json::array()}}, {{"certificate", Json::array()}}})}}};
}

} // namespace Host
