// The shared library needs one source of its own; its code comes from the objects of its parts.
