#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Cloth simulation filter: separates bare earth from objects in an airborne
// (or any top-down) scan. The cloud is turned upside down and a cloth of
// particles on a regular plan grid falls onto it under gravity; particles that
// reach the inverted surface stick there, the others are held up by the
// springs to their four neighbours, whose stiffness is the rigidness. Objects
// become pits in the inverted cloud that the cloth spans, so the settled cloth
// approximates the terrain; points within the class threshold of it are
// ground. Optional slope post-processing lets particles that the cloth left
// hanging over steep ground drop onto it where the surface below them is
// continuous with ground already touched.
//
// Cost: with n points and m = (extent / cloth resolution)^2 particles,
// O(n + m) memory (about 20 bytes a particle, 4 bytes a point beyond the
// output) and O(n + iterations * m) time, the simulation running on every
// core. The simulation stops early once the cloth has settled. The particle
// count is capped (see maxParticles) so a tiny resolution over a wide cloud
// is refused instead of exhausting memory.
class Algo_ClothFilter {
public:
    struct Params {
        // Post-process steep slopes: true/false, default true.
        bool slopeSmooth = true;
        // Largest distance from the cloth of a ground point, metres,
        // > 0, default 0.5.
        double classThreshold = 0.5;
        // Spacing of the cloth particles, metres, > 0, default 0.5.
        double clothResolution = 0.5;
        // Most simulation steps, 1..10000, default 500.
        int iterations = 500;
        // Stiffness of the cloth: 1 (soft, follows steep terrain) to 3 (stiff,
        // flat terrain); larger values act as an ever stiffer cloth, default 3.
        int rigidness = 3;
        // Simulation time step, > 0 (0.65 suits most scenes), default 0.65.
        double timeStep = 0.65;
        // Slope post-processing joins a hanging particle to a touching
        // neighbour when their surface heights differ by less than this,
        // metres, > 0, default 0.3.
        double slopeHeightDifference = 0.3;

        // Defaults for a cloud whose mean plan spacing between points is
        // meanSpacing metres (see Algo_DemGrid::meanSpacing), for unattended
        // use: about four points to a particle (0.5 to 5 m), the time step
        // scaled with it, a middle rigidness of 2 and slope smoothing on.
        static Params forSpacing(double meanSpacing);
    };

    // Particle budget: at least this many, or 16 per point if more.
    static constexpr size_t kMinParticleBudget = 1000000;

    // Labels each point 2 (ground) or 1 (object). Empty input gives empty
    // labels. On failure or stop, labels is left as it was.
    static bool run(const std::vector<pcVec3f>& points, const Params& params,
                    std::vector<int>* labels, ILongLiveActionProgress* progress, QString* error);

    // The particle budget for n points.
    static size_t maxParticles(size_t pointCount);
};

}  // namespace ptCloud
