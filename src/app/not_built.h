// The placeholder of applets that are not built yet.

#ifndef BENCHRIG_APP_NOT_BUILT_H
#define BENCHRIG_APP_NOT_BUILT_H

// Says so on standard error and returns -1.
int not_built_main(int argc, char **argv);

#endif
