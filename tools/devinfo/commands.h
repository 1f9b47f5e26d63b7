// devinfo's commands. Each takes the arguments from its command word on
// (argv[0] is the word) and returns the exit status.
#pragma once

int cmd_show(int argc, char *argv[]);
int cmd_get(int argc, char *argv[]);
int cmd_verify(int argc, char *argv[]);
int cmd_create(int argc, char *argv[]);
int cmd_set(int argc, char *argv[]);
int cmd_shm(int argc, char *argv[]);
int cmd_recover(int argc, char *argv[]);
