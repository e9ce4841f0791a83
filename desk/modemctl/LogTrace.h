#pragma once

#include <ostream>

#include "LogStory.h"

namespace logs {

/**
 * Writes a story as trace-event JSON: a row per thread with a slice per stage, arrows from a
 * request's entry over its handling to its answer, and what belongs to no request as instants.
 * Lines of one millisecond stand a microsecond apart, in their order.
 */
void writeTrace(const Story& story, std::ostream& out);

/**
 * Draws a story as SVG: a column per kind of thread, time going down, a box per stage. Long
 * sessions show their last part.
 */
void drawPicture(const Story& story, std::ostream& out);

}  // namespace logs
