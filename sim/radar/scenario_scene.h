// The scenes a scenario produces: each object moves along its waypoints at its speed.
#pragma once

#include "scenario.h"
#include "scene.pb.h"

#include <cstdint>

// Where the object is t seconds into the scenario. False once an object whose path does
// not loop has passed its last waypoint: it has left the scene.
bool scenario_object_position(const ScenarioObject &object, double t, GroundPoint *position);

// Frame number n, at t = n / rate. Scene.time is t in microseconds (rising from frame to
// frame), Scene.real_time the wall clock in microseconds.
Scene scenario_scene(const Scenario &scenario, uint64_t n);
