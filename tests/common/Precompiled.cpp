// No code: a precompiled header belongs to a library, and a library has a unit.
