#include "vboard/launcher/setting_checks.h"

#include "vboard/interposer/models/models.h"

namespace vboard {

namespace {

void append_models(Reason &out, std::string_view value) {
  Suggestions suggestions = {value, {}, {}};
  for (const Model *model : all_models())
    suggest(suggestions, model->name);
  append_suggestions(out, suggestions);
}

// Without a model nothing but the common settings is known.
Reason unknown_setting(const NodeTable &table, std::string_view key) {
  Reason out;
  append_text(out, "no setting \"", key, "\"");
  if (table.problem.length > 0) {
    append_text(out, ": ", table.problem.view());
    return out;
  }
  Suggestions suggestions = {key, {}, {}};
  for (const Setting &setting : table.settings)
    suggest(suggestions, setting.key);
  for (const Setting &setting : table.common)
    suggest(suggestions, setting.key);
  append_suggestions(out, suggestions);
  return out;
}

}  // namespace

Reason setting_problem(const NodeTable &table, std::string_view key, std::string_view value) {
  const Setting *row = find_row(table, key);
  if (row == nullptr)
    return unknown_setting(table, key);
  Reason out;
  if (!takes_value(*row, value)) {
    append_text(out, key, ": \"", value, "\" is not allowed; it may be ",
                allowed_values(*row).view());
  } else if (key == "model" && table.problem.length > 0) {
    append_text(out, table.problem.view());
    if (value.find('/') == value.npos)
      append_models(out, value);
  }
  return out;
}

}  // namespace vboard
