/* A unit of its own: the generator damages its header. */
int broken_unit_var = 2;
