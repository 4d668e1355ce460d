// The command line of nomsoi: the application, its global options and its commands, and the
// manual page and bash completion script generated from that one definition.
#include <cstdio>
#include <exception>
#include <map>
#include <sstream>

#include "commands.h"

namespace nomsoi {
namespace {

// What --help says of nomsoi, and the manual page's NAME.
constexpr char kDescription[] =
    "Turns planning data, or a package already on disk, into a self-contained 3D VGX package.";

// The invocation --help shows for nomsoi as a whole.
constexpr char kExample[] =
    "nomsoi pack --main ./package/SOI.vgxXml --view ./package/SOI.vgxView --out ./package";

// "Exit status: 0 ...; 1 ...; 2 ...; 3 ...": how every --help's footer starts.
std::string ExitStatusFooter() {
  std::string footer = "Exit status:";
  const std::vector<HelpEntry>& statuses = ExitStatuses();
  for (size_t i = 0; i < statuses.size(); ++i)
    footer += (i == 0 ? " " : "; ") + statuses[i].name + " " + statuses[i].text;
  return footer + ".";
}

// The footer of a --help: the exit statuses, then "Example: " and a real invocation.
std::string FooterWithExample(const std::string& example) {
  return ExitStatusFooter() + "\n\nExample: " + example;
}

// --- What the manual page and the completion script read from an option ----------------------

// An option's value: its type name without the allowed values ("FORMAT"), and those values when
// the option takes one of a set ({"text", "raw", "jsonl"}).
struct ValueShape {
  std::string type;
  std::vector<std::string> choices;
};

// CLI11 appends a set check's words to the type name: "FORMAT:{text,raw,jsonl}".
ValueShape ShapeOf(const CLI::Option& option) {
  ValueShape shape;
  const std::string full = option.get_type_name();
  const std::string::size_type set = full.find(":{");
  shape.type = full.substr(0, set);
  if (set == std::string::npos || full.back() != '}') return shape;
  std::stringstream words(full.substr(set + 2, full.size() - set - 3));
  for (std::string word; std::getline(words, word, ',');) {
    if (!word.empty()) shape.choices.push_back(word);
  }
  return shape;
}

bool IsFlag(const CLI::Option& option) { return option.get_expected_max() == 0; }

// "-q", "--quiet" or the positional's name, in that order.
std::vector<std::string> NamesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  if (names.empty()) names.push_back(option.get_name(true));
  return names;
}

// The options of app that --help lists, help and version apart, positionals included.
std::vector<const CLI::Option*> DocumentedOptions(CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : app.get_options()) {
    if (option == app.get_help_ptr() || option == app.get_version_ptr()) continue;
    if (option->get_group().empty()) continue;  // hidden
    options.push_back(option);
  }
  return options;
}

// --- The manual page -------------------------------------------------------------------------

// text as roff prints it: backslashes and hyphens escaped, a control character at the start of
// a line neutralised.
std::string Roff(const std::string& text) {
  std::string out;
  bool line_start = true;
  for (const char c : text) {
    if (line_start && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    line_start = c == '\n';
  }
  return out;
}

std::string Bold(const std::string& text) { return "\\fB" + Roff(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Roff(text) + "\\fR"; }

// "\fB\-\-log\fR \fIFILE\fR": an option's names and its value, as the synopsis and the option
// lists show it.
std::string OptionUsage(const CLI::Option& option) {
  const std::vector<std::string> names = NamesOf(option);
  const ValueShape shape = ShapeOf(option);
  if (option.get_positional()) return Italic(shape.type.empty() ? names[0] : shape.type);
  std::string usage;
  for (size_t i = 0; i < names.size(); ++i) usage += (i == 0 ? "" : ", ") + Bold(names[i]);
  if (!IsFlag(option)) usage += " " + Italic(shape.type.empty() ? "VALUE" : shape.type);
  return usage;
}

// One option's entry: its usage as the tag, then its description and what else it knows.
std::string OptionEntry(const CLI::Option& option) {
  std::string tag = OptionUsage(option);
  if (option.get_required()) tag += " (required)";
  if (!IsFlag(option) && option.get_expected_max() > 1) tag += " (repeatable)";
  std::string text = option.get_description();
  if (!text.empty() && text.back() != '.') text += ".";
  const ValueShape shape = ShapeOf(option);
  bool choices_named = true;  // the description names every allowed word already
  for (const std::string& choice : shape.choices)
    choices_named = choices_named && text.find(choice) != std::string::npos;
  if (!choices_named) {
    text += " One of:";
    for (size_t i = 0; i < shape.choices.size(); ++i)
      text += (i == 0 ? " " : ", ") + shape.choices[i];
    text += ".";
  }
  if (!option.get_default_str().empty()) text += " Default: " + option.get_default_str() + ".";
  const std::string variable = option.get_envname();
  if (!variable.empty() && text.find(variable) == std::string::npos)
    text += " Environment: " + variable + ".";
  return ".TP\n" + tag + "\n" + Roff(text) + "\n";
}

// A command's synopsis line: required options bare, the others in brackets.
std::string CommandSynopsis(CLI::App& command) {
  std::string line =
      Bold("nomsoi") + " [" + Italic("global options") + "] " + Bold(command.get_name());
  for (const CLI::Option* option : DocumentedOptions(command)) {
    const std::string usage = OptionUsage(*option);
    line += option->get_required() ? " " + usage : " [" + usage + "]";
  }
  return line;
}

// "Turns planning data..." -> "turns planning data..." without the final period.
std::string NameLine(const std::string& description) {
  std::string line = description;
  if (!line.empty() && line.back() == '.') line.pop_back();
  if (!line.empty() && line[0] >= 'A' && line[0] <= 'Z') line[0] = static_cast<char>(line[0] + 32);
  return line;
}

// --- The completion script -------------------------------------------------------------------

// How the completion treats the value of an option: "files", "dirs", the allowed words, or
// nothing to offer.
std::string ValueCompletion(const CLI::Option& option) {
  const ValueShape shape = ShapeOf(option);
  if (!shape.choices.empty()) {
    std::string words;
    for (const std::string& choice : shape.choices) words += (words.empty() ? "" : " ") + choice;
    return "_nomsoi_words '" + words + "' \"$cur\"";
  }
  if (shape.type == "FILE") return "_nomsoi_files \"$cur\"";
  if (shape.type == "DIR") return "_nomsoi_dirs \"$cur\"";
  return ":";
}

// The names a command line may hold for app's options; help and version only with_help.
std::string OptionWords(CLI::App& app, bool with_help) {
  std::string words;
  for (const CLI::Option* option : app.get_options()) {
    if (!with_help && (option == app.get_help_ptr() || option == app.get_version_ptr())) continue;
    if (option->get_positional() && option->get_snames().empty() && option->get_lnames().empty())
      continue;
    for (const std::string& name : NamesOf(*option)) words += (words.empty() ? "" : " ") + name;
  }
  return words;
}

// Single quotes for the shell: the text holds none of its own (option names and set words).
std::string ShellQuoted(const std::string& text) { return "'" + text + "'"; }

}  // namespace

CommandLine::CommandLine() : app_(kDescription, "nomsoi") {
  app_.footer(FooterWithExample(kExample));
  app_.require_subcommand(1);
  app_.fallthrough();
  app_.set_version_flag("--version", VersionText(), "Print \"" + VersionText() + "\" and exit");
  AddGlobalOptions(app_, globals_);
  commands_ = {
      SetupDumpCommand(app_),    SetupOdtCommand(app_),     SetupPackCommand(app_),
      SetupVerifyCommand(app_),  SetupPreviewCommand(app_), SetupDbCommand(app_),
      SetupConnectCommand(app_),
  };
  for (const Command& command : commands_) command.app->footer(FooterWithExample(command.example));
}

int CommandLine::Run(int argc, const char* const* argv) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app_.exit(error) == 0 ? kExitOk : kExitUsage;
  }
  if (int status = ApplyGlobalOptions(globals_)) return status;
  for (const Command& command : commands_) {
    if (!command.app->parsed()) continue;
    int status;
    try {
      status = command.run();
    } catch (const std::exception& error) {
      // Out of memory in the module: say so rather than abort.
      std::fprintf(stderr, "nomsoi %s: %s\n", command.app->get_name().c_str(), error.what());
      status = kExitFailed;
    }
    return status;
  }
  return kExitUsage;
}

int RunCommandLine(int argc, const char* const* argv) {
  CommandLine line;
  return line.Run(argc, argv);
}

std::string VersionText() { return std::string("nomsoi ") + LibraryVersion(); }

const std::vector<HelpEntry>& ExitStatuses() {
  static const std::vector<HelpEntry> statuses = {
      {"0",
       "every referenced document and geometry file is in the output (verify: the package is "
       "self-contained)"},
      {"1",
       "a copy or save failed, the module failed for another cause, or the server refused the "
       "connection"},
      {"2",
       "a usage error or an input refused before the module ran (verify: no package directory, "
       "or a document that is not well-formed XML)"},
      {"3",
       "the run finished but referenced files were missing (verify: a reference that is not a "
       "bare file name or names a missing file)"},
  };
  return statuses;
}

const std::vector<HelpEntry>& EnvironmentVariables() {
  static const std::vector<HelpEntry> variables = {
      {"NOMZUB_LOG", "Log file (\"-\" or unset: standard error); --log overrides it."},
      {"NOMZUB_LOG_FORMAT", "Log format: text, raw or jsonl; --log-format overrides it."},
      {"NOMZUB_CODE_PAGE", "Code page of the narrow strings; --code-page overrides it."},
      {"NOMZUB_DRIVES", "Drive maps, \"C=/mnt/c;D=/srv/d\"; --drive adds to them."},
      {"NOMZUB_SHARES", "Share maps, \"\\\\srv\\pub=/mnt/pub;...\"; --share adds to them."},
      {"NOMZUB_CASE_SENSITIVE",
       "1: path components and names in a package are looked up with their letter case only."},
      {"NOMZUB_CONFINE", "Confinement roots of pack and odt, colon-separated; see --confine."},
      {"NOMZUB_SERVER", "Planning data server of dump, connect and db when --server is not given."},
      {"NOMZUB_PASSWORD",
       "Password of dump and connect when neither --password nor "
       "--password-file is given."},
      {"NOMZUB_CACHE",
       "Product cache of the generator (dump); else $XDG_CACHE_HOME/nomzub, else "
       "$HOME/.cache/nomzub."},
      {"ADL_ODT_IN", "Directory that holds NOMZUBVGXExtractTest, for odt; --in sets it."},
  };
  return variables;
}

std::string ManPage(CommandLine& line) {
  CLI::App& app = line.app();
  std::string page;
  page += ".\\\" nomsoi(1), generated by nomsoi-docgen from nomsoi's command-line definitions.\n";
  page += ".TH NOMSOI 1 \"\" \"" + Roff(VersionText()) + "\" \"User Commands\"\n";
  page += ".nh\n.ad l\n";  // option names are neither hyphenated nor stretched apart
  page += ".SH NAME\nnomsoi \\- " + Roff(NameLine(app.get_description())) + "\n";

  page += ".SH SYNOPSIS\n";
  for (const Command& command : line.commands())
    page += ".PP\n" + CommandSynopsis(*command.app) + "\n";
  page += ".PP\n" + Bold("nomsoi") + " " + Bold("--version") + "\n";
  page += ".PP\n" + Bold("nomsoi") + " [" + Italic("command") + "] " + Bold("--help") + "\n";

  page += ".SH DESCRIPTION\n" + Roff(app.get_description()) + "\n";
  page += ".PP\nThe commands:\n";
  for (const Command& command : line.commands())
    page += ".TP\n" + Bold(command.app->get_name()) + "\n" + Roff(command.app->get_description()) +
            "\n";

  page += ".SH OPTIONS\n.SS \"Global options\"\n";
  page += "They may stand before the command or after it.\n";
  for (const CLI::Option* option : DocumentedOptions(app)) page += OptionEntry(*option);
  if (const CLI::Option* version = app.get_version_ptr()) {
    page += ".TP\n" + Bold("--version") + "\n" + Roff(version->get_description()) + ".\n";
  }
  if (const CLI::Option* help = app.get_help_ptr()) {
    page += ".TP\n" + OptionUsage(*help) + "\n" +
            Roff("Print the options of nomsoi, or of the command it follows, and exit.") + "\n";
  }
  for (const Command& command : line.commands()) {
    page += ".SS \"" + Roff("nomsoi " + command.app->get_name()) + "\"\n";
    page += Roff(command.app->get_description()) + "\n";
    for (const CLI::Option* option : DocumentedOptions(*command.app)) page += OptionEntry(*option);
  }

  page += ".SH \"EXIT STATUS\"\n";
  for (const HelpEntry& status : ExitStatuses())
    page += ".TP\n" + Bold(status.name) + "\n" + Roff(status.text) + ".\n";

  page += ".SH ENVIRONMENT\n";
  for (const HelpEntry& variable : EnvironmentVariables())
    page += ".TP\n" + Bold(variable.name) + "\n" + Roff(variable.text) + "\n";

  page += ".SH EXAMPLES\n";
  for (const Command& command : line.commands()) {
    page += ".PP\n" + Bold(command.app->get_name()) + ":\n.PP\n.RS 4\n.nf\n" +
            Roff(command.example) + "\n.fi\n.RE\n";
  }
  return page;
}

std::string BashCompletion(CommandLine& line) {
  CLI::App& app = line.app();
  std::string command_pattern;  // "dump | odt | ...", a case pattern
  std::string command_words;    // "dump odt ...", completion words
  for (const Command& command : line.commands()) {
    command_pattern += (command_pattern.empty() ? "" : " | ") + command.app->get_name();
    command_words += (command_words.empty() ? "" : " ") + command.app->get_name();
  }

  // The options that take a value, as case patterns grouped by what completes the value: the
  // global ones by name, the commands' by "command name".
  std::map<std::string, std::vector<std::string>> global_values, command_values;
  std::string global_value_pattern;
  for (const CLI::Option* option : DocumentedOptions(app)) {
    if (IsFlag(*option) || option->get_positional()) continue;
    for (const std::string& name : NamesOf(*option)) {
      global_values[ValueCompletion(*option)].push_back(name);
      global_value_pattern += (global_value_pattern.empty() ? "" : " | ") + name;
    }
  }
  for (const Command& command : line.commands()) {
    for (const CLI::Option* option : DocumentedOptions(*command.app)) {
      if (IsFlag(*option) || option->get_positional()) continue;
      for (const std::string& name : NamesOf(*option))
        command_values[ValueCompletion(*option)].push_back(
            ShellQuoted(command.app->get_name() + " " + name));
    }
  }
  const auto value_arms = [](const std::map<std::string, std::vector<std::string>>& values) {
    std::string arms;
    for (const auto& entry : values) {
      std::string pattern;
      for (const std::string& name : entry.second) pattern += (pattern.empty() ? "" : " | ") + name;
      arms += "    " + pattern + ")\n      " + entry.first + "\n      return\n      ;;\n";
    }
    return arms;
  };

  std::string script =
      "# bash completion for " + VersionText() +
      "; generated by nomsoi-docgen from nomsoi's command-line definitions.\n"
      "\n"
      "_nomsoi_words() { mapfile -t COMPREPLY < <(compgen -W \"$1\" -- \"$2\"); }\n"
      "_nomsoi_files() {\n"
      "  compopt -o filenames 2>/dev/null\n"
      "  mapfile -t COMPREPLY < <(compgen -f -- \"$1\")\n"
      "}\n"
      "_nomsoi_dirs() {\n"
      "  compopt -o filenames 2>/dev/null\n"
      "  mapfile -t COMPREPLY < <(compgen -d -- \"$1\")\n"
      "}\n"
      "\n"
      "_nomsoi() {\n"
      "  local cur=${COMP_WORDS[COMP_CWORD]} prev= command= i\n"
      "  COMPREPLY=()\n"
      "  ((COMP_CWORD > 0)) && prev=${COMP_WORDS[COMP_CWORD - 1]}\n"
      "  # The command: the first word that names one, the values of global options skipped.\n"
      "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
      "    case ${COMP_WORDS[i]} in\n"
      "      " +
      command_pattern +
      ")\n"
      "        command=${COMP_WORDS[i]}\n"
      "        break\n"
      "        ;;\n";
  if (!global_value_pattern.empty()) script += "      " + global_value_pattern + ") ((i++)) ;;\n";
  script +=
      "    esac\n"
      "  done\n"
      "  # The value of the option before the word being completed.\n"
      "  case $prev in\n" +
      value_arms(global_values) +
      "  esac\n"
      "  case \"$command $prev\" in\n" +
      value_arms(command_values) +
      "  esac\n"
      "  # Option names, and the command's own arguments.\n"
      "  local global=" +
      ShellQuoted(OptionWords(app, false)) +
      "\n"
      "  case $command in\n"
      "    \"\")\n"
      "      _nomsoi_words \"" +
      command_words + " " + OptionWords(app, true) + "\" \"$cur\"\n      ;;\n";
  for (const Command& command : line.commands()) {
    std::string positional;
    for (const CLI::Option* option : DocumentedOptions(*command.app)) {
      if (option->get_positional()) positional = ValueCompletion(*option);
    }
    const std::string options =
        "_nomsoi_words " + ShellQuoted(OptionWords(*command.app, true)) + "\" $global\" \"$cur\"";
    script += "    " + command.app->get_name() + ")\n";
    if (positional.empty()) {
      script += "      " + options + "\n      ;;\n";
    } else {
      script += "      if [[ $cur == -* ]]; then\n        " + options + "\n      else\n        " +
                positional + "\n      fi\n      ;;\n";
    }
  }
  script +=
      "  esac\n"
      "}\n"
      "\n"
      "complete -F _nomsoi nomsoi\n";
  return script;
}

}  // namespace nomsoi
