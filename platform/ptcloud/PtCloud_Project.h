#pragma once

#include <QString>
#include <memory>

namespace ptCloud {

class PtCloud_Controller;

// A project folder: a manifest listing the LAS source references and the
// datasets, and one folder per dataset.
class PtCloud_Project {
public:
    PtCloud_Project();
    ~PtCloud_Project();

    // Opens the project in folder, creating an empty one when the folder has
    // no manifest yet. False with a reason when it cannot be read or made.
    bool open(const QString& folder, QString* error);
    bool isOpen() const;
    QString getFolder() const;
    PtCloud_Controller* getController() const;

    static QString manifestFileName();

private:
    std::unique_ptr<PtCloud_Controller> m_controller;
};

}  // namespace ptCloud
