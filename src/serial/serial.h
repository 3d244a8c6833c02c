// Handlers of the serial and sensor tools.

#ifndef BENCHRIG_SERIAL_SERIAL_H
#define BENCHRIG_SERIAL_SERIAL_H

int gsensor_main(int argc, char **argv);

#endif
