// Stories: what happens to a machine of which no history is described. Each is made of the machine as it was read, and
// becomes events of the description like those that a person writes.
#pragma once

#include "rehearse/description/Description.h"
#include "rehearse/host/Options.h"

#include <string>
#include <string_view>

namespace rehearse {

// "" for the name of a story, "all" or "none"; else what is wrong with it.
std::string WrongStory(std::string_view name);

// The names, with a comma between, for the help.
std::string StoryNames();

// Adds the events of the stories that the options or, without any there, the description name. They begin after the
// description's own events and timed expectations. Called once the machine is filled, before events are scheduled.
// Throws InputError for an unknown story.
void AddStories(TomlTable& description, const Options& options);

} // namespace rehearse
