#pragma once

/* Size of a property value with its terminating NUL. */
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads a property.
 *
 * @param value takes the text, NUL-terminated; at least PROPERTY_VALUE_MAX bytes
 * @param default_value text for a property that is not set or empty; may be null for none
 * @return length of the text
 */
int property_get(const char* key, char* value, const char* default_value);

/**
 * Writes a property. It survives the process; another process that reads it finds the value of
 * before or the new one, never a mixture.
 *
 * @param value at most PROPERTY_VALUE_MAX - 1 characters; null is empty
 * @return 0, or -1 when the value is too long, cannot be stored, or is of a key beyond the 256th
 */
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
