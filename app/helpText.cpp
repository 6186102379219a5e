#include "helpText.h"

#include <algorithm>
#include <vector>

namespace app {

namespace {

std::vector<const CLI::App*> shownCommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { label("Positionals", "Arguments"); }

    // A command that passes its arguments on does not name them.
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string usage = "Usage: " + name;
        if (!app->get_options([](const CLI::Option* option) { return option->nonpositional(); }).empty())
            usage += " [OPTIONS]";
        for (const auto* positional :
             app->get_options([](const CLI::Option* option) { return option->get_positional(); })) {
            usage += " " + make_option_usage(positional);
        }
        if (app->get_prefix_command()) usage += " FILE [ARGS...]";
        if (!shownCommands(*app).empty()) usage += app->get_parent() ? " [COMMAND]" : " COMMAND ...";
        return usage + "\n";
    }
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode) const override {
        const auto commands = shownCommands(*app);
        std::string text = commands.empty() ? "" : "\nCommands:\n";
        for (const auto* command : commands) text += make_subcommand(command);
        return text;
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        const bool isMany = option->get_expected_max() == CLI::detail::expected_max_vector_size;
        std::string text;
        if (option->nonpositional() && option->get_type_size() != 0) text = " " + option->get_type_name();
        return text + (isMany ? " ..." : "");
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        const auto& variable = option->get_envname();
        return option->get_description() + (variable.empty() ? "" : " (also " + variable + ")");
    }
};

/// What was not expected: the words that are left over.
std::string problemOf(const CLI::App& command, const std::string& name, const CLI::Error& error,
                      const std::vector<std::string>& extra) {
    const std::string text = error.what();
    const bool isExtra = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if ((isExtra || isMissing) && !extra.empty() && extra[0].starts_with('-'))
        return extra[0] + " is no option of " + name;
    if (isExtra && !extra.empty()) {
        if (shownCommands(command).empty()) return extra[0] + " is one argument too many";
        return extra[0] + " is no command; there are " + commandsOf(command);
    }
    // The parser's own words for it describe the type of the value.
    if (error.get_name() != "ArgumentMismatch") return text;
    return text.substr(0, text.find(':')) +
           (text.ends_with("missing") ? " needs a value" : " must be given only once");
}

}  // namespace

std::shared_ptr<CLI::FormatterBase> helpFormatter() { return std::make_shared<HelpFormatter>(); }

std::string failureText(const CLI::App& used, const CLI::Error& error) {
    const CLI::App* command = &used;
    std::string name = used.get_name();
    for (auto deeper = command->get_subcommands(); !deeper.empty(); deeper = command->get_subcommands()) {
        command = deeper.back();
        name += " " + command->get_name();
    }
    return "numora: " + problemOf(*command, name, error, used.remaining(true)) + "\nRun '" + name +
           " --help' for what there is.\n";
}

std::string commandsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const auto* command : shownCommands(app)) names.push_back(command->get_name());
    std::ranges::sort(names);
    std::string text;
    for (const auto& name : names) {
        text += (text.empty() ? "" : name == names.back() ? " and " : ", ") + name;
    }
    return text;
}

}  // namespace app
