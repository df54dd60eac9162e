#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "separation/Settings.h"

/// Settings of a separation from keyword arguments: those of the method, called as in the table of
/// methods() but in small letters and without the method's name in front, and those of the frames,
/// the noise, the outputs and the passes. What is not given has the command's defaults. Refuses
/// keywords that there are not or that the method does not read, and values out of range.
Separation::Settings separationSettings(const std::string& method, const pybind11::dict& keywords,
                                        int rate, int length, int microphones);

/// The keywords that are parameters of the method's engine, likewise.
BF::EngineParameters engineKeywords(const std::string& method, const pybind11::dict& keywords);

/// The algorithm of a method's name. Refuses others.
BF::BfAlgorithmType algorithmNamed(const std::string& method);
