#include "verb_parser.h"

#include <CLI/CLI.hpp>

#include "interrupt.h"

namespace aotool {

Verb& Verb::Operand(const char* name, std::string& value, const std::string& text, Need need) {
  if (app != nullptr) app->add_option(name, value, text)->required(need == Need::kRequired);
  return *this;
}

Verb& Verb::Path(CommonOptions& options, const std::string& text, Need need) {
  return Operand("PATH", options.path, text, need);
}

Verb& Verb::Flag(const char* names, bool& value, const std::string& text) {
  if (app != nullptr) app->add_flag(names, value, text);
  return *this;
}

Verb& Verb::Flag(const char* names, const std::function<void()>& take, const std::string& text) {
  if (app != nullptr) app->add_flag_callback(names, take, text);
  return *this;
}

Verb& Verb::Option(const char* names, std::string& value, const char* valueName,
                   const std::string& text) {
  if (app != nullptr) app->add_option(names, value, text)->type_name(valueName);
  return *this;
}

Verb& Verb::Option(const char* names, const std::function<void(const std::string&)>& take,
                   const char* valueName, const std::string& text) {
  if (app != nullptr)
    app->add_option_function<std::string>(names, take, text)->type_name(valueName);
  return *this;
}

Verb& Verb::Number(const char* names, std::uint32_t& value, std::uint32_t smallest,
                   std::uint32_t largest, const std::string& text) {
  if (app != nullptr) app->add_option(names, value, text)->check(CLI::Range(smallest, largest));
  return *this;
}

Verb& Verb::Choice(const char* names, std::string& value, const std::vector<std::string>& words,
                   const std::string& text) {
  if (app != nullptr)
    app->add_option(names, value, text)->check(CLI::IsMember(words))->capture_default_str();
  return *this;
}

Verb& Verb::Json(CommonOptions& options) {
  return Flag("--json", options.json, "print one JSON document instead");
}

Verb& Verb::Color(CommonOptions& options) {
  const auto take = [&options](const std::string& word) {
    options.color = word == "always"  ? ColorRule::kAlways
                    : word == "never" ? ColorRule::kNever
                                      : ColorRule::kAuto;
  };
  if (app == nullptr) return *this;
  app->add_option_function<std::string>(
         "--color", take, "colours in what is printed; auto: on a terminal, unless NO_COLOR is set")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
  return *this;
}

Verb& Verb::Reserve(CommonOptions& options) {
  return Number("--reserve", options.reserve, 0, 0x40000000U,
                "bytes kept free behind the data of each new block, so that it can grow in place");
}

Verb& Verb::Needs(const char* name, const char* other) {
  if (app != nullptr) app->get_option(name)->needs(app->get_option(other));
  return *this;
}

Verb& Verb::Excludes(const char* name, const char* other) {
  if (app != nullptr) app->get_option(name)->excludes(app->get_option(other));
  return *this;
}

Verb Verb::OneOf(const char* title) {
  if (app == nullptr) return *this;
  CLI::Option_group* group = app->add_option_group(title);
  group->require_option(1);
  return Verb(group);
}

ExitCode Verbs::Finish(Report& report) {
  const Result result = FlushPrinted();
  // An interrupt is told once.
  if (!result.Ok() && (report.Code() == kDone || !Interrupted())) report.Fail("", result);
  return report.Code();
}

Verb Verbs::AddVerb(const VerbText& text, const Action& action) {
  if (!only.empty() && only != text.name) return Verb(nullptr);
  CLI::App* verb = app.add_subcommand(text.name, text.description);
  verb->callback([this, action] { chosen = action; });
  std::string footer = text.notes;
  if (!footer.empty()) footer += "\n\n";
  footer += "Examples:\n";
  for (std::string_view rest = text.examples; !rest.empty();) {
    const std::size_t end = rest.find('\n') + 1;
    footer.append("  ").append(rest.substr(0, end));
    rest.remove_prefix(end);
  }
  verb->footer(footer + "\n" + app.get_footer());
  return Verb(verb);
}

}  // namespace aotool
