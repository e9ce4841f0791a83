#pragma once

#include "tests/schedules/World.h"

/** Makes a folder of its own with the files that load requests name, and makes it the current one.
 */
std::string makeFolder();

/**
 * One schedule: some hundred actions, and the end of all that is under way.
 *
 * @param tells prints every action and what the plug-in did
 * @throws std::runtime_error with the first thing that went wrong
 */
void runSchedule(World::Random random, bool tells);
