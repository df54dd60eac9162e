// Gives the other plug-in a variable: the dynamic loader must find it before that one loads.
extern int testPluginNeeded;
int testPluginNeeded = 40;
