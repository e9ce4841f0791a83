#pragma once

/**
 * The library's only entry point; the host calls it once, after loading. The service that it starts
 * lives until the process ends.
 *
 * @param argv the plug-in's command line, see `ModemOptions`
 * @return an Errno: 0; 3 for a bad command line; the code of a client that could not be set up
 */
extern "C" __attribute__((visibility("default"))) int onLoad(int argc, char** argv);
